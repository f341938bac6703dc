// kelctl crc: the library's checksums of files.

#include <kelcore_hash.h>

#include <vector>

#include "command.h"
#include "input.h"
#include "json.h"
#include "report.h"
#include "running_sum.h"
#include "text.h"

namespace kelctl {

namespace {

constexpr const char kHelp[] =
    "Usage: kelctl crc [--json] FILE...\n"
    "Print the CRC-32 and the CRC-16 of files, as KEL_Hash_crc32 and KEL_Hash_crc16\n"
    "compute them. A FILE of - is standard input.\n"
    "\n"
    "      --json  print a JSON document\n"
    "      --help  print this text\n"
    "\n"
    "The CRC-16 is the library's own, no published variant. It is also the key of\n"
    "the shared memory segment whose name the data are.\n"
    "\n"
    "Examples:\n"
    "  kelctl crc show.ts tone.aac\n"
    "  kelctl crc --json *.ts\n"
    "  printf totals | kelctl crc -\n";

struct Sums {
  std::string file;
  uint64_t bytes = 0;
  uint32_t crc32 = 0;
  uint32_t crc16 = 0;
};

Sums SumUp(const std::string &file) {
  Input input(file);
  RunningSum crc32(KEL_Hash_crc32), crc16(KEL_Hash_crc16);
  Sums sums;
  sums.file = file;
  std::vector<char> block(1 << 18);
  for (;;) {
    const size_t size = input.Read(block.data(), block.size());
    crc32.Append(block.data(), size);
    crc16.Append(block.data(), size);
    sums.bytes += size;
    if (size < block.size())
      break;
  }
  sums.crc32 = crc32.value();
  sums.crc16 = crc16.value();
  return sums;
}

void PrintText(const std::vector<Sums> &all) {
  if (all.empty())
    return;
  Table table({"CRC-32", "CRC-16", ">BYTES", "FILE"});
  for (const Sums &sums : all)
    table.Add({HexNumber(sums.crc32, 8), HexNumber(sums.crc16, 4), std::to_string(sums.bytes),
               sums.file});
  Print(table.Text());
}

void PrintJson(const std::vector<Sums> &all) {
  Json json;
  json.Object().Key("files").Array();
  for (const Sums &sums : all) {
    json.Object().Key("file").Text(sums.file).Key("bytes").Number(sums.bytes);
    json.Key("crc32").Text(HexNumber(sums.crc32, 8));
    json.Key("crc16").Text(HexNumber(sums.crc16, 4)).EndObject();
  }
  Print(json.EndArray().EndObject().Take() + "\n");
}

int Run(const Options &options) {
  if (options.operands().empty())
    throw UsageError("no FILE given");
  std::vector<Sums> all;
  int status = kSuccess;
  for (const std::string &file : options.operands()) {
    try {
      all.push_back(SumUp(file));
    } catch (const Failure &failure) {
      Complain(failure.what());
      status = kFailure;
    }
  }
  if (options.Has("json"))
    PrintJson(all);
  else
    PrintText(all);
  return status;
}

}  // namespace

const Command &CrcCommand() {
  static const Command command = {"crc", "CRC-32 and CRC-16 of files", kHelp, {}, Run};
  return command;
}

}  // namespace kelctl
