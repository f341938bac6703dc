// kelctl hexdump: the bytes of a file.

#include <algorithm>
#include <vector>

#include "command.h"
#include "hex_rows.h"
#include "input.h"
#include "report.h"
#include "text.h"

namespace kelctl {

namespace {

constexpr const char kHelp[] =
    "Usage: kelctl hexdump [--offset N] [--length N] [--json] FILE\n"
    "Show the bytes of a file, sixteen to a row, as digits and as ASCII characters. A\n"
    "FILE of - is standard input.\n"
    "\n"
    "      --offset N  begin at this byte (0)\n"
    "      --length N  show at most this many bytes (all)\n"
    "      --json      print a JSON document\n"
    "      --help      print this text\n"
    "\n"
    "Numbers are decimal, or hexadecimal behind 0x. An offset behind the end of the\n"
    "file is a failure.\n"
    "\n"
    "Examples:\n"
    "  kelctl hexdump --length 64 show.ts\n"
    "  kelctl hexdump --offset 0xbc --length 188 show.ts    the second packet\n"
    "  kelctl hexdump --json --length 16 tone.aac\n";

// A multiple of the row, so that rows stay whole.
constexpr size_t kBlock = 4096 * kRowBytes;

int Run(const Options &options) {
  if (options.operands().size() != 1)
    throw UsageError(options.operands().empty() ? "no FILE given" : "one FILE at a time");
  const uint64_t offset = options.Number("offset", 0);
  uint64_t left = options.Number("length", UINT64_MAX);
  const std::string &file = options.operands().front();
  Input input(file);
  input.Skip(offset);
  const bool as_json = options.Has("json");
  Json json;
  if (as_json)
    json.Object().Key("file").Text(file).Key("offset").Number(offset).Key("rows").Array();
  std::vector<char> block(kBlock);
  uint64_t shown = 0;
  while (left != 0) {
    const size_t size =
        input.Read(block.data(), static_cast<size_t>(std::min<uint64_t>(left, kBlock)));
    const std::string_view data(block.data(), size);
    if (as_json)
      AddHexRows(json, data, offset + shown);
    Print(as_json ? json.Take() : HexRows(data, offset + shown));
    shown += size;
    left -= size;
    if (size < kBlock)
      break;
  }
  if (as_json)
    Print(json.EndArray().Key("length").Number(shown).EndObject().Take() + "\n");
  return kSuccess;
}

}  // namespace

const Command &HexdumpCommand() {
  static const Command command = {
      "hexdump", "the bytes of a file", kHelp, {{}, {"offset", "length"}}, Run};
  return command;
}

}  // namespace kelctl
