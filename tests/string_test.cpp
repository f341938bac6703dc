// Text helpers.

#include "kelcore_string.h"

#include <gtest/gtest.h>
#include <string.h>

#include "trace_capture.h"

namespace {

struct Search {
  const char *text, *pattern;
  int at;  // -1 for none
};
void PrintTo(const Search &search, std::ostream *out) {
  *out << (search.text ? search.text : "null") << "/"
       << (search.pattern ? search.pattern : "null");
}

class StringSearch : public testing::TestWithParam<Search> {};

TEST_P(StringSearch, FindsTheLastOccurrence) {
  const Search &search = GetParam();
  const char *found = KEL_strrstr(search.text, search.pattern);
  EXPECT_EQ(found, search.at < 0 ? nullptr : search.text + search.at);
}

INSTANTIATE_TEST_SUITE_P(Cases, StringSearch,
                         testing::Values(Search{"abcabc", "bc", 4}, Search{"abcabc", "abc", 3},
                                         Search{"abcabc", "abcabc", 0}, Search{"abc", "a", 0},
                                         Search{"abc", "c", 2}, Search{"aaaa", "aa", 2},
                                         Search{"abc", "x", -1}, Search{"ab", "abc", -1},
                                         Search{"", "a", -1}, Search{"a", "", -1},
                                         Search{"", "", -1}, Search{nullptr, "a", -1},
                                         Search{"a", nullptr, -1}));

TEST(StringPrint, IsVsnprintf) {
  char to[8];
  memset(to, '#', sizeof to);
  EXPECT_EQ(KEL_snprintf(to, 6, "%s-%d", "abc", 42), 6);
  EXPECT_STREQ(to, "abc-4");
  EXPECT_EQ(to[6], '#');
  EXPECT_EQ(KEL_snprintf(to, 8, "%04d", 7), 4);
  EXPECT_STREQ(to, "0007");
}

TEST(StringPrint, MeasuresWithoutAPlace) {
  char to[4] = "###";
  EXPECT_EQ(KEL_snprintf(nullptr, 0, "%s-%d", "abc", 42), 6);
  EXPECT_EQ(KEL_snprintf(to, 0, "%s", "abc"), 3);
  EXPECT_STREQ(to, "###");
}

// As vsnprintf sees it, a size below 0 is one without end.
TEST(StringPrint, ANegativeSizeIsHuge) {
  char to[16];
  char expected[16];
  volatile int32_t size = -1;
  const int result = snprintf(expected, static_cast<size_t>(size), "%s", "text");
  EXPECT_EQ(KEL_snprintf(to, size, "%s", "text"), result);
  if (result >= 0) {
    EXPECT_STREQ(to, expected);
  }
}

TEST(StringFourCc, IsTheCodesBytesInMemoryOrder) {
  char buffer[6] = "#####";
  EXPECT_EQ(KEL_FourCC_String(0x31637661, buffer), buffer);
  EXPECT_STREQ(buffer, "avc1");
  EXPECT_EQ(buffer[5], '\0');
}

TEST(StringFourCc, WithoutABufferSharesOne) {
  char *first = KEL_FourCC_String(0x31637661, nullptr);
  EXPECT_STREQ(first, "avc1");
  EXPECT_EQ(KEL_FourCC_String(0x6134706D, nullptr), first);
  EXPECT_STREQ(first, "mp4a");
}

TEST(StringWide, ConversionsOnlyHandOutTheirBuffers) {
  wchar_t *wide = KEL_char2Wchar("abc");
  char *narrow = KEL_Wchar2char(L"abc");
  ASSERT_NE(wide, nullptr);
  ASSERT_NE(narrow, nullptr);
  EXPECT_EQ(KEL_char2Wchar(nullptr), wide);
  EXPECT_EQ(KEL_Wchar2char(nullptr), narrow);
  EXPECT_NE(static_cast<void *>(wide), narrow);
  EXPECT_EQ(wide[0], L'\0');
  EXPECT_EQ(narrow[0], '\0');
  memset(wide, 1, 256);
  memset(narrow, 1, 256);
  memset(wide, 0, 256);
  memset(narrow, 0, 256);
  char to[] = "kept";
  EXPECT_EQ(KEL_Wchar2charcopy(L"other", to), to);
  EXPECT_STREQ(to, "kept");
}

struct Trim {
  const char *text, *open, *close;
  uint32_t size;
  const char *expected;
};

class StringTrim : public testing::TestWithParam<Trim> {};

TEST_P(StringTrim, ExtractsBetweenTheLastDelimiters) {
  const Trim &trim = GetParam();
  char to[33];
  memset(to, '#', sizeof to);
  EXPECT_EQ(KEL_strtrim(trim.text, trim.open, trim.close, to, trim.size), to);
  EXPECT_STREQ(to, trim.expected);
  EXPECT_EQ(to[strlen(trim.expected) + 1], '#') << "nothing behind the terminator";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StringTrim,
    testing::Values(Trim{"cfg[video]x", "[", "]", 16, "video"},
                    Trim{"cfg[video]x", "[", "]", 4, "vid"},
                    Trim{"cfg[video]x", "[", "]", 6, "video"},
                    Trim{"cfg[video]x", "[", "]", 5, "vide"},
                    Trim{"a(b)c(d)e", "(", ")", 16, "d"}, Trim{"plain", "(", ")", 16, "plain"},
                    Trim{"plain", "(", ")", 4, "pla"}, Trim{"x<<y", "<<", ">>", 16, "<y"},
                    Trim{"a]b[c", "[", "]", 16, "c"}, Trim{"ab]cd]e", "[", "]", 16, "ab]cd"},
                    Trim{"a[b", "[", "]", 1, ""}, Trim{"", "[", "]", 8, ""},
                    Trim{"a[b>>c", "[", ">>", 16, "b"}, Trim{"a\"b\"c", "\"", "\"", 16, "c"},
                    Trim{"x<<y", "<<", "<", 16, ""}, Trim{"a[b]c", "", "]", 16, "a[b"},
                    Trim{"a[b]c", "[", "", 16, "b]c"}, Trim{"a[]b", "[", "]", 16, ""}));

TEST(StringTrimNull, NeedsAllFourPointers) {
  char to[4];
  EXPECT_EQ(KEL_strtrim(nullptr, "a", "b", to, 4), nullptr);
  EXPECT_EQ(KEL_strtrim("t", nullptr, "b", to, 4), nullptr);
  EXPECT_EQ(KEL_strtrim("t", "a", nullptr, to, 4), nullptr);
  EXPECT_EQ(KEL_strtrim("t", "a", "b", nullptr, 4), nullptr);
  EXPECT_EQ(KEL_strtrim("t", "a", "b", to, 0), nullptr);
}

TEST(String, NeverTraces) {
  TraceCapture trace;
  char to[4];
  KEL_strrstr(nullptr, nullptr);
  KEL_strtrim(nullptr, nullptr, nullptr, to, 4);
  EXPECT_EQ(trace.Take(), Lines{});
}

}  // namespace
