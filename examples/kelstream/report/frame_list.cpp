// The frames of files, as they are found.

#include "frame_list.h"

#include <cinttypes>
#include <cstdio>

namespace kelstream {

namespace {

std::string Line(const FrameReport &frame) {
  char pts[24] = "-";
  if (frame.has_pts)
    std::snprintf(pts, sizeof pts, "%" PRId64, frame.pts);
  char text[128];
  std::snprintf(text, sizeof text,
                "%6u  %8" PRIu64 "  %12" PRIu64 "  %9" PRIu64 "  %-3s  %12s\n",
                unsigned{frame.stream}, frame.number, frame.offset, frame.size,
                frame.key ? "key" : "-", pts);
  return text;
}

}  // namespace

std::string FrameList::Frame(const FileReport &file, const FrameReport &frame) {
  std::string text;
  if (json_) {
    if (file_begun_)
      text = ",\n  ";
    else
      text = (any_ ? ",\n " : "[") + JsonFramesHead(file) + "\n  ";
    text += JsonFrame(frame);
  } else {
    if (!file_begun_)
      text = "frames of " + Printable(file.file) +
             "\nSTREAM    NUMBER        OFFSET       SIZE  KEY           PTS\n";
    text += Line(frame);
  }
  file_begun_ = true;
  any_ = true;
  return text;
}

std::string FrameList::EndFile(const FileReport &file) {
  std::string text;
  if (json_) {
    if (!file_begun_)
      text = (any_ ? ",\n " : "[") + JsonFramesHead(file);
    text += JsonFramesEnd(file);
    any_ = true;
  } else if (file_begun_) {
    text = "\n";
  }
  file_begun_ = false;
  return text;
}

std::string FrameList::End() {
  if (!json_)
    return {};
  return any_ ? "]\n" : "[]\n";
}

}  // namespace kelstream
