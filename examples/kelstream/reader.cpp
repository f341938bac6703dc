// The reader thread.

#include "reader.h"

#include <kelcore_file.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "adts_splitter.h"
#include "adts_syntax.h"
#include "h264_splitter.h"
#include "trace.h"

namespace kelstream {

Reader::Reader(Exchange &exchange, FILE *file)
    : file_(file), sender_(exchange), piece_(kPiece) {}

bool Reader::Start() {
  const auto entry = [](void *self) -> void * {
    static_cast<Reader *>(self)->Run();
    return nullptr;
  };
  thread_ = KEL_ThreadCreate("ks-reader", 0, 0, entry, this);
  return thread_ != nullptr;
}

void Reader::Join() {
  if (thread_ != nullptr)
    KEL_ThreadDelete(thread_, nullptr);
  thread_ = nullptr;
}

void Reader::Run() {
  try {
    ReadAll();
  } catch (const std::bad_alloc &) {
    end_.read_error = ENOMEM;
  }
  KELSTREAM_TRACE(KEL_LEVEL_INFO, "%llu bytes read as %s\n",
                  static_cast<unsigned long long>(end_.size), NameOf(end_.container));
  sender_.End(end_);
}

void Reader::Fill() {
  while (!at_end_ && filled_ < piece_.size()) {
    const uint64_t wanted = piece_.size() - filled_;
    errno = 0;
    const uint64_t count = KEL_FileRead(file_, piece_.data() + filled_, wanted);
    if (count < wanted) {
      at_end_ = true;
      if (std::ferror(file_) != 0)
        end_.read_error = errno != 0 ? errno : EIO;
    }
    filled_ += static_cast<size_t>(count);
    end_.size += count;
    KELSTREAM_TRACE(KEL_LEVEL_DEBUG, "piece of %llu bytes\n",
                    static_cast<unsigned long long>(count));
  }
}

void Reader::Drop(size_t count) {
  std::memmove(piece_.data(), piece_.data() + count, filled_ - count);
  filled_ -= count;
  offset_ += count;
}

// Tags in front may be longer than a piece (they hold pictures), and hide what
// the file is.
void Reader::SkipTags() {
  while (filled_ >= adts::kId3HeaderSize) {
    const auto tag = adts::Id3TagSize(piece_.data());
    if (!tag)
      return;
    for (uint64_t left = *tag; left > 0 && filled_ > 0;) {
      const auto count = static_cast<size_t>(std::min<uint64_t>(left, filled_));
      Drop(count);
      left -= count;
      Fill();
    }
  }
}

std::unique_ptr<Splitter> Reader::MakeSplitter() {
  switch (end_.container) {
    case Container::kH264:
      return std::make_unique<H264Splitter>(sender_, offset_);
    case Container::kAdts:
      return std::make_unique<AdtsSplitter>(sender_, offset_);
    case Container::kUnknown:
      break;
  }
  return nullptr;
}

void Reader::ReadAll() {
  Fill();
  SkipTags();
  end_.container = Probe(piece_.data(), filled_, at_end_);
  const auto splitter = MakeSplitter();
  if (splitter == nullptr)
    return;
  while (filled_ > 0) {
    splitter->Feed(piece_.data(), filled_);
    filled_ = 0;
    Fill();
  }
  splitter->Finish();
}

}  // namespace kelstream
