// kelctl trace: what a trace configuration would admit.

#include <algorithm>

#include "command.h"
#include "json.h"
#include "report.h"
#include "text.h"
#include "trace_table.h"

namespace kelctl {

namespace {

constexpr const char kHelp[] =
    "Usage: kelctl trace [--json] TEXT\n"
    "Explain what the trace configuration TEXT, as KEL_TraceSet takes it, would\n"
    "admit: segment by segment, with those that are skipped, not read or never\n"
    "reached. Nothing is changed in any program.\n"
    "\n"
    "      --json  print a JSON document\n"
    "      --help  print this text\n"
    "\n"
    "TEXT is a list of module:level pairs between commas. The module '*' matches\n"
    "every one, and the first entry that matches a module decides. Levels: 0 nothing,\n"
    "1 ERROR, 2 INFO, 3 DEBUG, 4 TRACE, each with those below it.\n"
    "\n"
    "Examples:\n"
    "  kelctl trace 'kelqueue:3,player:4,*:1'\n"
    "  kelctl trace '*:1,player:4'     why the player keeps silent\n"
    "  kelctl trace --json 'player:9'\n"
    "  kelctl trace -- '-odd:1'        a text that begins with '-'\n";

std::string Join(const std::vector<std::string> &words, const char *between) {
  std::string text;
  for (const std::string &word : words)
    text += (text.empty() ? "" : between) + word;
  return text;
}

std::string Prints(int32_t level) {
  const std::vector<std::string> names = AdmittedLevels(level);
  return names.empty() ? "prints nothing" : "prints " + Join(names, ", ");
}

std::string Meaning(const TraceSegment &segment, bool first_deciding) {
  switch (segment.fate) {
    case Fate::kSkipped:
      return "skipped";
    case Fate::kUnread:
      return "not read";
    case Fate::kEntry:
      break;
  }
  const std::string module = segment.matches_all() ? "'*'" : "module '" + segment.module + "'";
  if (!segment.decides())
    return module + " at level " + std::to_string(segment.level) + ", never reached: segment " +
           std::to_string(segment.hidden_by) + " decides first";
  if (segment.matches_all())
    return (first_deciding ? "every module " : "every other module ") + Prints(segment.level);
  return module + " " + Prints(segment.level);
}

struct Summary {
  bool has_rest = false;   // a '*' decides for all that are not named
  bool bare_text = false;  // KEL_Traces prints
  bool any_entry = false;
};

Summary Summarize(const std::vector<TraceSegment> &segments) {
  Summary summary;
  for (const TraceSegment &segment : segments) {
    if (segment.fate != Fate::kEntry)
      continue;
    summary.any_entry = true;
    summary.has_rest = summary.has_rest || segment.matches_all();
    // Also by a '*' that another one hides.
    summary.bare_text = summary.bare_text || (segment.matches_all() && segment.level > 0);
  }
  return summary;
}

void PrintText(const std::vector<TraceSegment> &segments) {
  bool first_deciding = true;
  for (size_t i = 0; i < segments.size(); ++i) {
    const TraceSegment &segment = segments[i];
    Print(std::to_string(i + 1) + "  '" + Printable(segment.text) +
          "': " + Printable(Meaning(segment, first_deciding)) + "\n");
    for (const std::string &note : segment.notes)
      Print("     " + Printable(note) + "\n");
    first_deciding = first_deciding && !segment.decides();
  }
  const Summary summary = Summarize(segments);
  if (!summary.has_rest)
    Print(summary.any_entry ? "Every other module prints nothing.\n"
                            : "No module prints anything.\n");
  Print(summary.bare_text
            ? "KEL_Traces prints, and goes on to whatever is set later.\n"
            : "KEL_Traces prints only if a '*' with a level above 0 was set before.\n");
}

void AddSegment(Json &json, const TraceSegment &segment, size_t number) {
  constexpr const char *kFates[] = {"entry", "skipped", "unread"};
  json.Object().Key("number").Number(uint64_t{number}).Key("text").Text(segment.text);
  json.Key("fate").Text(kFates[static_cast<int>(segment.fate)]);
  if (segment.fate == Fate::kEntry) {
    json.Key("module").Text(segment.module);
    json.Key("level").Number(int64_t{segment.level});
    json.Key("hidden_by");
    if (segment.hidden_by != 0)
      json.Number(uint64_t{segment.hidden_by});
    else
      json.Null();
    json.Key("prints").Array();
    if (segment.decides())
      for (const std::string &name : AdmittedLevels(segment.level))
        json.Text(name);
    json.EndArray();
  }
  json.Key("notes").Array();
  for (const std::string &note : segment.notes)
    json.Text(note);
  json.EndArray().EndObject();
}

int Run(const Options &options) {
  if (options.operands().size() != 1)
    throw UsageError(options.operands().empty() ? "no TEXT given"
                                                : "one TEXT only: quote it if it has blanks");
  const std::string &text = options.operands().front();
  const std::vector<TraceSegment> segments = ReadTraceText(text);
  if (!options.Has("json")) {
    PrintText(segments);
    return kSuccess;
  }
  Json json;
  json.Object().Key("text").Text(text).Key("segments").Array();
  for (size_t i = 0; i < segments.size(); ++i)
    AddSegment(json, segments[i], i + 1);
  const Summary summary = Summarize(segments);
  json.EndArray().Key("others_print_nothing").Bool(!summary.has_rest);
  json.Key("bare_text").Bool(summary.bare_text);
  Print(json.EndObject().Take() + "\n");
  return kSuccess;
}

}  // namespace

const Command &TraceCommand() {
  static const Command command = {"trace", "explain a trace configuration", kHelp, {}, Run};
  return command;
}

}  // namespace kelctl
