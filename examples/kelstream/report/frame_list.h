// The parts of the list of frames that the report's JSON form makes.
#pragma once

#include <string>

#include "report.h"

namespace kelstream {

std::string JsonFrame(const FrameReport &frame);
// What stands before the first frame of a file, and behind the last one.
std::string JsonFramesHead(const FileReport &file);
std::string JsonFramesEnd(const FileReport &file);

}  // namespace kelstream
