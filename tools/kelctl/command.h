// What kelctl can be told to do; one source per command.
#pragma once

#include "options.h"

namespace kelctl {

struct Command {
  const char *name;
  const char *summary;
  const char *help;
  OptionNames options;  // besides --help and --json, which all know
  int (*run)(const Options &options);
};

const Command &IpcCommand();
const Command &ShmCommand();
const Command &TraceCommand();
const Command &CrcCommand();
const Command &HexdumpCommand();

}  // namespace kelctl
