// kelctl: looks at what programs of this library leave in the system.

#include <kelcore_types.h>

#include <exception>
#include <string>
#include <vector>

#include "command.h"
#include "report.h"
#include "text.h"

namespace kelctl {
namespace {

#define KELCTL_TEXT(number) KELCTL_TEXT_OF(number)
#define KELCTL_TEXT_OF(number) #number
constexpr const char kVersion[] = "kelctl " KELCTL_TEXT(KELCORE_VERSION_MAJOR) "." KELCTL_TEXT(
    KELCORE_VERSION_MINOR) "." KELCTL_TEXT(KELCORE_VERSION_PATCH) "\n";

const std::vector<const Command *> &Commands() {
  static const std::vector<const Command *> commands = {
      &IpcCommand(), &ShmCommand(), &TraceCommand(), &CrcCommand(), &HexdumpCommand()};
  return commands;
}

std::string Help() {
  std::string text =
      "Usage: kelctl COMMAND [OPTION]... [ARGUMENT]...\n"
      "Look at the queues, semaphores and shared memory of programs on kelcore, and\n"
      "at their data.\n"
      "\n"
      "Commands:\n";
  constexpr size_t kNameWidth = 10;
  for (const Command *command : Commands()) {
    std::string name = command->name;
    name.resize(kNameWidth, ' ');
    text += "  " + name + command->summary + "\n";
  }
  return text +
         "\n"
         "Options of every command:\n"
         "  --json     print one JSON document instead of text\n"
         "  --help     explain the command, with examples\n"
         "  --version  print the version\n"
         "\n"
         "Examples:\n"
         "  kelctl ipc                         what there is between processes\n"
         "  kelctl ipc /player --drain         empty a queue, after asking\n"
         "  kelctl shm totals                  the segment that this name maps to\n"
         "  kelctl trace 'player:4,*:1'        what would be traced\n"
         "  kelctl crc --json show.ts          sums for a script\n"
         "\n"
         "Exit status: 0 when all is well, 1 on a failure, 2 for a command line that is\n"
         "not understood.\n";
}

int RunCommand(const Command &command, const std::vector<std::string> &arguments) {
  OptionNames known = command.options;
  known.flags.insert({"help", "json", "version"});
  const Options options(arguments, known);
  if (options.Has("help")) {
    Print(command.help);
    return kSuccess;
  }
  if (options.Has("version")) {
    Print(kVersion);
    return kSuccess;
  }
  return command.run(options);
}

// `hint` becomes the help to point at.
int Run(const std::vector<std::string> &arguments, std::string *hint) {
  if (arguments.empty())
    throw UsageError("no command given");
  const std::string &first = arguments.front();
  if (first == "--help" || first == "--version") {
    Print(first == "--help" ? Help() : kVersion);
    return kSuccess;
  }
  for (const Command *command : Commands()) {
    if (first != command->name)
      continue;
    *hint = "kelctl " + first + " --help";
    return RunCommand(*command, {arguments.begin() + 1, arguments.end()});
  }
  throw UsageError("unknown " + std::string(first[0] == '-' ? "option " : "command ") + first);
}

int Main(const std::vector<std::string> &arguments) {
  std::string hint = "kelctl --help";
  try {
    const int status = Run(arguments, &hint);
    FinishPrinting();
    return status;
  } catch (const UsageError &error) {
    Complain(error.what());
    Complain("try '" + hint + "'");
    return kUsage;
  } catch (const std::exception &error) {
    Complain(error.what());
    return kFailure;
  }
}

}  // namespace
}  // namespace kelctl

int main(int argc, char **argv) {
  return kelctl::Main({argv + 1, argv + argc});
}
