// kelctl shm: shared memory segments.

#include <cstring>

#include "command.h"
#include "confirm.h"
#include "hex_rows.h"
#include "report.h"
#include "segment.h"
#include "text.h"

namespace kelctl {

namespace {

constexpr const char kHelp[] =
    "Usage: kelctl shm [--json]\n"
    "       kelctl shm [--json] [--bytes N] NAME\n"
    "       kelctl shm [--json] --remove [--yes] NAME\n"
    "List the system's shared memory segments, show the one that a NAME maps to, or\n"
    "remove it.\n"
    "\n"
    "      --bytes N  dump at most N bytes (256); with 0 the segment is not attached\n"
    "      --remove   remove the segment: it lives on until all have let go, but is\n"
    "                 found no more\n"
    "      --yes      do not ask\n"
    "      --json     print a JSON document\n"
    "      --help     print this text\n"
    "\n"
    "The library finds a segment by a 16-bit sum of its name, so different names may\n"
    "meet in one segment. The data of a program begin 16 bytes behind the beginning,\n"
    "where the segment's identifier stands.\n"
    "\n"
    "Examples:\n"
    "  kelctl shm                          all segments\n"
    "  kelctl shm --bytes 64 totals        one, and the beginning of its data\n"
    "  kelctl shm --json totals            the same for a script\n"
    "  kelctl shm --remove --yes totals    what a killed program left behind\n";

constexpr uint64_t kDefaultBytes = 256;

std::string KeyText(uint32_t key) {
  return "0x" + HexNumber(key, 8);
}

void AddSegment(Json &json, const Segment &segment) {
  json.Object().Key("key").Number(uint64_t{segment.key});
  json.Key("id").Number(int64_t{segment.id});
  json.Key("size").Number(segment.size);
  json.Key("attached").Number(segment.attached);
  json.Key("creator_pid").Number(int64_t{segment.creator});
  json.Key("last_pid").Number(int64_t{segment.last});
  json.Key("marked_for_removal").Bool(segment.dying);
  AddAccess(json, segment.access);
  json.EndObject();
}

int List(bool as_json) {
  const std::vector<Segment> segments = ListSegments();
  if (as_json) {
    Json json;
    json.Object().Key("segments").Array();
    for (const Segment &segment : segments)
      AddSegment(json, segment);
    Print(json.EndArray().EndObject().Take() + "\n");
    return kSuccess;
  }
  if (segments.empty()) {
    Print("no shared memory segments\n");
    return kSuccess;
  }
  Table table({"KEY", ">ID", ">SIZE", ">ATTACHED", ">CREATOR", ">LAST", "OWNER", "MODE", ""});
  for (const Segment &segment : segments)
    table.Add({KeyText(segment.key), std::to_string(segment.id), std::to_string(segment.size),
               std::to_string(segment.attached), std::to_string(segment.creator),
               std::to_string(segment.last), UserName(segment.access.uid),
               ModeText(segment.access.mode), segment.dying ? "marked for removal" : ""});
  Print(table.Text());
  return kSuccess;
}

// What a segment holds, as far as it was read.
struct Contents {
  std::string bytes;
  bool read = false;

  // What stands in front of the data, if all of it was read.
  std::optional<int32_t> identifier() const {
    int32_t number = 0;
    if (bytes.size() < sizeof number)
      return std::nullopt;
    std::memcpy(&number, bytes.data(), sizeof number);
    return number;
  }
};

std::string Details(const std::string &name, const Segment &segment, const Contents &contents) {
  std::string text = "name '" + Printable(name) + "' maps to key " + KeyText(segment.key) +
                     ", as other names may\n";
  text += "  id        " + std::to_string(segment.id) + "\n";
  text += "  size      " + Count(segment.size, "byte") + "\n";
  text += "  attached  " + Count(segment.attached, "time") + "\n";
  text += "  creator   process " + std::to_string(segment.creator) + "\n";
  text += "  last      process " + std::to_string(segment.last) + "\n";
  text += "  owner     " + Printable(UserName(segment.access.uid)) + ", mode " +
          ModeText(segment.access.mode) + "\n";
  if (const auto identifier = contents.identifier()) {
    text += "  header    identifier " + std::to_string(*identifier);
    text +=
        *identifier == segment.id ? "\n" : ": not this segment's; another program's memory?\n";
  }
  if (!contents.bytes.empty())
    text += HexRows(contents.bytes, 0);
  if (contents.read && contents.bytes.size() < segment.size)
    text += Count(segment.size - contents.bytes.size(), "byte") + " more\n";
  return text;
}

void PrintJson(const std::string &name, uint32_t key, const std::optional<Segment> &segment,
               const Contents &contents, bool removed) {
  Json json;
  json.Object().Key("name").Text(name).Key("key").Number(uint64_t{key}).Key("segment");
  if (segment)
    AddSegment(json, *segment);
  else
    json.Null();
  json.Key("identifier");
  if (const auto identifier = contents.identifier())
    json.Number(int64_t{*identifier});
  else
    json.Null();
  json.Key("rows").Array();
  AddHexRows(json, contents.bytes, 0);
  Print(json.EndArray().Key("removed").Bool(removed).EndObject().Take() + "\n");
}

int Show(const std::string &name, const Segment &segment, const Options &options) {
  Contents contents;
  int status = kSuccess;
  const uint64_t wanted = options.Number("bytes", kDefaultBytes);
  try {
    if (wanted != 0) {
      contents.bytes = ReadSegment(segment, wanted);
      contents.read = true;
    }
  } catch (const Failure &failure) {
    // The rest is known, and tells who could read it.
    Complain(failure.what());
    status = kFailure;
  }
  if (options.Has("json"))
    PrintJson(name, segment.key, segment, contents, false);
  else
    Print(Details(name, segment, contents));
  return status;
}

int Remove(const std::string &name, const Segment &segment, const Options &options) {
  const std::string what = "segment " + std::to_string(segment.id) + " of name '" + name +
                           "' (" + Count(segment.size, "byte") + ", attached " +
                           Count(segment.attached, "time") + ")";
  bool removed = false;
  try {
    if (Confirm("Remove " + what + "?", options.Has("yes"))) {
      RemoveSegment(segment);
      removed = true;
    }
  } catch (const Failure &failure) {
    Complain(failure.what());
  }
  if (options.Has("json"))
    PrintJson(name, segment.key, segment, {}, removed);
  else if (removed)
    Print("removed " + Printable(what) + "\n");
  return removed ? kSuccess : kFailure;
}

int Run(const Options &options) {
  const std::vector<std::string> &names = options.operands();
  if (names.size() > 1)
    throw UsageError("one NAME at a time");
  if (options.Has("remove") && options.Has("bytes"))
    throw UsageError("--remove shows nothing: --bytes does not go with it");
  options.Number("bytes", 0);  // complains before anything is looked up
  if (names.empty()) {
    if (options.Has("remove") || options.Has("bytes"))
      throw UsageError("no NAME given");
    return List(options.Has("json"));
  }
  const std::string &name = names.front();
  const uint32_t key = KeyOfName(name);
  const std::optional<Segment> segment = key != 0 ? FindSegment(key) : std::optional<Segment>();
  if (segment)
    return options.Has("remove") ? Remove(name, *segment, options)
                                 : Show(name, *segment, options);
  if (key == 0)
    Complain("name '" + name + "' maps to key 0: every program gets a segment of its own");
  else
    Complain("there is no segment of name '" + name + "' (key " + KeyText(key) + ")");
  if (options.Has("json"))
    PrintJson(name, key, segment, {}, false);
  return kFailure;
}

}  // namespace

const Command &ShmCommand() {
  static const Command command = {"shm",
                                  "shared memory segments: list, show, remove",
                                  kHelp,
                                  {{"remove", "yes"}, {"bytes"}},
                                  Run};
  return command;
}

}  // namespace kelctl
