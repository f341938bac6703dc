// That the wrapper costs nothing: each pair of codegen/pairs.cpp compiles to the same
// instructions. The build leaves the compiler's assembly text in the files that
// KELCORE_CPP_LISTINGS names: with exceptions and without, for this machine and, where
// the cross compiler is at hand, for the device.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

// By function: its lines, local labels being numbered as they come.
using Listing = std::map<std::string, std::string>;

bool in_label(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// The end of the local label that begins at `at`; `at` itself when none does.
size_t label_end(const std::string &text, size_t at) {
  if (text.compare(at, 2, ".L") != 0)
    return at;
  at += 2;
  while (at < text.size() && in_label(text[at]))
    ++at;
  return at;
}

std::string renamed_labels(const std::string &text, std::map<std::string, size_t> &numbers) {
  std::string out;
  for (size_t at = 0; at < text.size();) {
    const size_t end = label_end(text, at);
    if (end == at) {
      out += text[at++];
      continue;
    }
    const size_t number =
        numbers.emplace(text.substr(at, end - at), numbers.size()).first->second;
    out += ".L" + std::to_string(number);
    at = end;
  }
  return out;
}

// What some compilers say beside the instructions.
std::string without_comment(const std::string &line) {
  size_t end = std::min(line.find("# "), line.find("//"));
  if (end == std::string::npos)
    return line;
  while (end > 0 && std::isspace(static_cast<unsigned char>(line[end - 1])) != 0)
    --end;
  return line.substr(0, end);
}

bool mentions(const std::string &code, const std::string &label) {
  for (size_t at = code.find(label); at != std::string::npos; at = code.find(label, at + 1))
    if (!in_label(code[at + label.size()]))
      return true;
  return false;
}

// Instructions, and the labels that jumps go to. Directives, and labels that only
// directives use, say nothing about what runs.
std::string instructions(const std::vector<std::string> &lines) {
  std::vector<std::string> kept;
  std::string used;
  for (const std::string &raw : lines) {
    const std::string line = without_comment(raw);
    if (line.empty() || line.compare(0, 2, "\t.") == 0)
      continue;
    kept.push_back(line);
    if (line[0] == '\t')
      used += line + "\n";
  }
  std::map<std::string, size_t> numbers;
  std::string out;
  for (const std::string &line : kept)
    if (line[0] != '.' || mentions(used, line.substr(0, line.find(':'))))
      out += renamed_labels(line, numbers) + "\n";
  return out;
}

Listing read_listing(const std::string &path) {
  std::ifstream in(path);
  Listing listing;
  std::string name;
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    if (line.empty())
      continue;
    if (line.compare(0, 2, "c_") == 0 || line.compare(0, 4, "cpp_") == 0) {
      name = line.substr(0, line.find(':'));
      lines.clear();
    } else if (!name.empty() && line.compare(0, 7, "\t.size\t") == 0) {
      listing[name] = instructions(lines);
      name.clear();
    } else if (!name.empty()) {
      lines.push_back(line);
    }
  }
  return listing;
}

class Codegen : public testing::TestWithParam<const char *> {};

TEST_P(Codegen, WrapperAndCCallsCompileToTheSameInstructions) {
  const Listing listing = read_listing(GetParam());
  size_t pairs = 0;
  for (const auto &[name, code] : listing) {
    if (name.compare(0, 2, "c_") != 0)
      continue;
    const auto twin = listing.find("cpp_" + name.substr(2));
    ASSERT_NE(twin, listing.end()) << name << " has no twin";
    EXPECT_FALSE(code.empty()) << name;
    EXPECT_EQ(code, twin->second) << name;
    ++pairs;
  }
  EXPECT_EQ(pairs * 2, listing.size());
  EXPECT_GE(pairs, 20u) << "is the listing read at all?";
}

INSTANTIATE_TEST_SUITE_P(Listings, Codegen, testing::Values(KELCORE_CPP_LISTINGS));

}  // namespace
