// That the wrapper costs nothing: each pair of codegen/pairs.cpp compiles to the same
// instructions. The build leaves the compiler's assembly text in the files that
// KELCORE_CPP_LISTINGS names, one with exceptions and one without.

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

// By function: its lines, local labels being numbered as they come.
using Listing = std::map<std::string, std::string>;

bool is_local_label(const std::string &text, size_t at) {
  return text.compare(at, 2, ".L") == 0 && at + 2 < text.size() &&
         std::isdigit(static_cast<unsigned char>(text[at + 2])) != 0;
}

class Normaliser {
 public:
  std::string line(const std::string &text) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
      if (!is_local_label(text, at)) {
        out += text[at++];
        continue;
      }
      size_t end = at + 2;
      while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) != 0)
        ++end;
      const std::string label = text.substr(at, end - at);
      const size_t number = numbers_.emplace(label, numbers_.size()).first->second;
      out += ".L" + std::to_string(number);
      at = end;
    }
    return out;
  }

 private:
  std::map<std::string, size_t> numbers_;
};

bool mentions(const std::string &code, const std::string &label) {
  for (size_t at = code.find(label); at != std::string::npos; at = code.find(label, at + 1))
    if (std::isdigit(static_cast<unsigned char>(code[at + label.size()])) == 0)
      return true;
  return false;
}

// Instructions, and the labels that jumps go to. Directives, and labels that only
// directives use, say nothing about what runs.
std::string instructions(const std::vector<std::string> &lines) {
  std::string used;
  for (const std::string &line : lines)
    if (line[0] == '\t' && line.compare(0, 2, "\t.") != 0)
      used += line + "\n";
  Normaliser normalise;
  std::string out;
  for (const std::string &line : lines) {
    if (line.compare(0, 2, "\t.") == 0)
      continue;
    if (line[0] == '.') {
      if (!mentions(used, line.substr(0, line.find(':'))))
        continue;
    }
    out += normalise.line(line) + "\n";
  }
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
