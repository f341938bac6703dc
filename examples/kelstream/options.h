// The command line.
#pragma once

#include <string>
#include <vector>

namespace kelstream {

struct Options {
  std::vector<std::string> files;
  bool json = false;
  bool frames = false;
  bool publish = false;
  std::string publish_name;
  bool watch = false;
  std::string watch_name;
  bool help = false;
  bool version = false;
  bool trace = false;
  std::string trace_text;
  bool trace_to_file = false;
  std::string trace_file;
};

// Returns an empty text, or what is wrong with the command line.
std::string ParseOptions(const std::vector<std::string> &arguments, Options &options);

extern const char kHelp[];

}  // namespace kelstream
