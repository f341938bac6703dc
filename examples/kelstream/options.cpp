// The command line.

#include "options.h"

namespace kelstream {

const char kHelp[] =
    "Usage: kelstream [OPTION]... FILE...\n"
    "       kelstream --watch NAME\n"
    "Inspect H.264 byte streams (Annex B), AAC in ADTS, and MPEG transport streams\n"
    "that carry them. A FILE of - is standard input.\n"
    "\n"
    "      --json             print a JSON document instead of a table\n"
    "      --frames           list every frame, too\n"
    "      --publish NAME     offer the progress to other processes\n"
    "      --watch NAME       show what another kelstream publishes, until it ends\n"
    "      --trace TEXT       trace levels, as in kelstream:3,keltime:0,*:1\n"
    "      --trace-file PATH  write traces to this file, too\n"
    "      --help             print this text\n"
    "      --version          print the version\n"
    "\n"
    "BYTES and CRC-32 are those of the elementary stream, as far as it could be\n"
    "read. Presentation times count 90000 to the second, and on from one turn of\n"
    "their 33 bits to the next. OFFSET is a frame's place in the file.\n"
    "\n"
    "Streams are read by their headers; the coded pictures and sounds themselves\n"
    "are not decoded. Damage is reported with its place in the file where headers\n"
    "tell of it. That the last picture of an H.264 stream is cut short within its\n"
    "coded data cannot be told.\n"
    "\n"
    "Exit status: 0 when all is well, 1 when a file could not be read or on an\n"
    "error, 2 when a stream is damaged or cut short.\n";

namespace {

struct ValueOption {
  const char *name;
  bool Options::*given;
  std::string Options::*value;
};

constexpr ValueOption kValueOptions[] = {
    {"--publish", &Options::publish, &Options::publish_name},
    {"--watch", &Options::watch, &Options::watch_name},
    {"--trace", &Options::trace, &Options::trace_text},
    {"--trace-file", &Options::trace_to_file, &Options::trace_file},
};

struct FlagOption {
  const char *name;
  bool Options::*given;
};

constexpr FlagOption kFlagOptions[] = {
    {"--json", &Options::json},
    {"--frames", &Options::frames},
    {"--help", &Options::help},
    {"--version", &Options::version},
};

bool TakeFlag(const std::string &argument, Options &options) {
  for (const FlagOption &option : kFlagOptions) {
    if (argument == option.name) {
      options.*option.given = true;
      return true;
    }
  }
  return false;
}

// Takes "--name VALUE" (moving on to the value) and "--name=VALUE".
bool TakeValue(const std::vector<std::string> &arguments, size_t &index, Options &options,
               std::string &problem) {
  const std::string &argument = arguments[index];
  const size_t equals = argument.find('=');
  const std::string name = argument.substr(0, equals);
  for (const ValueOption &option : kValueOptions) {
    if (name != option.name)
      continue;
    options.*option.given = true;
    if (equals != std::string::npos)
      options.*option.value = argument.substr(equals + 1);
    else if (index + 1 < arguments.size())
      options.*option.value = arguments[++index];
    else
      problem = "option " + name + " needs a value";
    return true;
  }
  return false;
}

}  // namespace

std::string ParseOptions(const std::vector<std::string> &arguments, Options &options) {
  std::string problem;
  bool only_files = false;
  for (size_t i = 0; i < arguments.size() && problem.empty(); ++i) {
    const std::string &argument = arguments[i];
    if (only_files || argument.size() < 2 || argument[0] != '-')
      options.files.push_back(argument);
    else if (argument == "--")
      only_files = true;
    else if (!TakeFlag(argument, options) && !TakeValue(arguments, i, options, problem))
      problem = "unknown option " + argument;
  }
  if (!problem.empty() || options.help || options.version)
    return problem;
  if (options.watch && (options.publish || !options.files.empty()))
    return "--watch goes with neither files nor --publish";
  if (!options.watch && options.files.empty())
    return "no file given";
  return problem;
}

}  // namespace kelstream
