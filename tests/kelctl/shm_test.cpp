// kelctl shm with real segments.

#include <gtest/gtest.h>
#include <kelcore_shm.h>

#include "json_reader.h"
#include "program.h"
#include "things.h"

namespace kelctl_test {
namespace {

Result Shm(std::vector<std::string> words, const Setting &setting = {}) {
  words.insert(words.begin(), "shm");
  return RunProgram(words, setting);
}

class ShmTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(segment_.ok());
    const int id = segment_.id();
    std::memcpy(segment_.data(), &id, sizeof id);
    std::strcpy(segment_.data() + 16, "totals");
  }
  std::string Id() const { return std::to_string(segment_.id()); }
  std::string Key() const {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", kelctl::KeyOfName(segment_.name()));
    return text;
  }

  const RealSegment segment_{1000};
};

TEST_F(ShmTest, Shows) {
  const Result result = Shm({"--bytes=40", segment_.name()});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out.find("name '" + segment_.name() + "' maps to key " + Key() +
                            ", as other names may\n  id        " + Id() +
                            "\n  size      1000 bytes\n  attached  1 time\n"
                            "  creator   process " +
                            std::to_string(getpid()) + "\n"),
            0u)
      << result.out;
  EXPECT_TRUE(
      Contains(result.out, ", mode 0600\n  header    identifier " + Id() + "\n00000000  "));
  EXPECT_TRUE(Contains(result.out,
                       "00000010  74 6f 74 61 6c 73 00 00  00 00 00 00 00 00 00 00"
                       "  |totals..........|\n"
                       "00000020  00 00 00 00 00 00 00 00                         "
                       "  |........|\n960 bytes more\n"))
      << result.out;
}

TEST_F(ShmTest, LimitsTheDump) {
  const auto rows = [&](const std::string &bytes) {
    return ReadJson(Shm({"--json", "--bytes", bytes, segment_.name()}).out)["rows"].size();
  };
  EXPECT_EQ(rows("0"), 0u);
  EXPECT_EQ(rows("1"), 1u);
  EXPECT_EQ(rows("17"), 2u);
  EXPECT_EQ(rows("0xffffffffffff"), 63u) << "no more than there are";
  EXPECT_EQ(ReadJson(Shm({"--json", segment_.name()}).out)["rows"].size(), 16u);
  EXPECT_FALSE(Contains(Shm({"--bytes=1000", segment_.name()}).out, "more"));
  EXPECT_FALSE(Contains(Shm({"--bytes=0", segment_.name()}).out, "header"));
}

TEST_F(ShmTest, Json) {
  const JsonValue document = ReadJson(Shm({"--json", segment_.name()}).out);
  EXPECT_EQ(document["name"].text, segment_.name());
  EXPECT_EQ(document["key"].number, kelctl::KeyOfName(segment_.name()));
  const JsonValue &segment = document["segment"];
  EXPECT_EQ(segment["key"].number, document["key"].number);
  EXPECT_EQ(segment["id"].number, segment_.id());
  EXPECT_EQ(segment["size"].number, 1000);
  EXPECT_EQ(segment["attached"].number, 1);
  EXPECT_EQ(segment["creator_pid"].number, getpid());
  EXPECT_FALSE(segment["marked_for_removal"].truth);
  EXPECT_EQ(segment["uid"].number, geteuid());
  EXPECT_EQ(segment["mode"].text, "0600");
  EXPECT_EQ(document["identifier"].number, segment_.id());
  EXPECT_EQ(document["rows"][1]["offset"].number, 16);
  EXPECT_EQ(document["rows"][1]["ascii"].text, "totals..........");
  EXPECT_FALSE(document["removed"].truth);
}

TEST_F(ShmTest, NoticesMemoryThatIsNotTheLibrarys) {
  std::memset(segment_.data(), 0xFF, 16);
  EXPECT_TRUE(Contains(Shm({segment_.name()}).out, "identifier -1: not this segment's"));
  EXPECT_EQ(ReadJson(Shm({"--json", segment_.name()}).out)["identifier"].number, -1);
}

TEST_F(ShmTest, IsListed) {
  const JsonValue document = ReadJson(Shm({"--json"}).out);
  int found = 0;
  for (const JsonValue &item : document["segments"].items)
    if (item["id"].number == segment_.id()) {
      ++found;
      EXPECT_EQ(item["key"].number, kelctl::KeyOfName(segment_.name()));
      EXPECT_EQ(item["size"].number, 1000);
    }
  EXPECT_EQ(found, 1);
  const Result table = Shm({});
  EXPECT_EQ(table.status, 0);
  EXPECT_EQ(table.out.find("KEY "), 0u);
  EXPECT_TRUE(Contains(table.out, "\n" + Key() + "  "));
}

TEST_F(ShmTest, Removes) {
  const Result result = Shm({"--remove", "--yes", segment_.name()});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "removed segment " + Id() + " of name '" + segment_.name() +
                            "' (1000 bytes, attached 1 time)\n");
  EXPECT_FALSE(segment_.exists());
  EXPECT_STREQ(segment_.data() + 16, "totals") << "those who have it keep it";
  const JsonValue list = ReadJson(Shm({"--json"}).out);
  bool marked = false;
  for (const JsonValue &item : list["segments"].items)
    marked |= item["id"].number == segment_.id() && item["marked_for_removal"].truth;
  EXPECT_TRUE(marked);
  EXPECT_TRUE(Contains(Shm({}).out, "  marked for removal\n"));
  const Result again = Shm({"--remove", "--yes", "--json", segment_.name()});
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(again.err, "kelctl: there is no segment of name '" + segment_.name() + "' (key " +
                           Key() + ")\n");
  const JsonValue document = ReadJson(again.out);
  EXPECT_TRUE(document["segment"].null());
  EXPECT_FALSE(document["removed"].truth);
}

TEST_F(ShmTest, RemovalIsToldInJson) {
  EXPECT_TRUE(
      ReadJson(Shm({"--remove", "--yes", "--json", segment_.name()}).out)["removed"].truth);
  EXPECT_FALSE(segment_.exists());
}

TEST_F(ShmTest, AsksBeforeItRemoves) {
  const Result unasked = Shm({"--remove", "--json", segment_.name()}, {.input = "y\n"});
  EXPECT_EQ(unasked.status, 1);
  EXPECT_TRUE(Contains(unasked.err, "No terminal to ask on")) << unasked.err;
  EXPECT_FALSE(ReadJson(unasked.out)["removed"].truth);
  EXPECT_EQ(Shm({"--remove", segment_.name()}, {.keys = "no\n"}).status, 1);
  EXPECT_TRUE(segment_.exists());
  const Result result = Shm({"--remove", segment_.name()}, {.keys = "y\n"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(Contains(result.err, "Remove segment " + Id() + " of name '" + segment_.name() +
                                       "' (1000 bytes, attached 1 time)? [y/N] "))
      << result.err;
  EXPECT_FALSE(segment_.exists());
}

TEST(Shm, FindsWhatTheLibraryMade) {
  // Its name comes from one whose key is free.
  std::string name;
  {
    const RealSegment probe(16);
    ASSERT_TRUE(probe.ok());
    name = probe.name();
    shmctl(probe.id(), IPC_RMID, nullptr);
  }
  uint8_t created = 0;
  auto *const data =
      static_cast<char *>(KEL_ShmMalloc(name.c_str(), 20, &created, "f", 1, "m"));
  ASSERT_NE(data, nullptr);
  std::strcpy(data, "of the library");
  const JsonValue document = ReadJson(Shm({"--json", name}).out);
  KEL_ShmFree(data);
  EXPECT_EQ(created, 1);
  EXPECT_EQ(document["segment"]["size"].number, 48);
  EXPECT_EQ(document["identifier"].number, document["segment"]["id"].number);
  EXPECT_EQ(document["rows"][1]["ascii"].text, "of the library..");
}

TEST(Shm, NamesThatShareNothing) {
  const Result result = Shm({""});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "kelctl: name '' maps to key 0: every program gets a segment of its "
            "own\n");
}

// Only their sum is looked up, so there is none that is too long.
TEST(Shm, LongNames) {
  std::string name(5000, 'n');
  while (kelctl::FindSegment(kelctl::KeyOfName(name)) || kelctl::KeyOfName(name) == 0)
    name += 'n';
  const Result result = Shm({name});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err.find("kelctl: there is no segment of name '" + name + "' (key 0x"), 0u);
}

TEST(Shm, OddNamesAreValidJson) {
  const std::string name = UniqueName("a\"\n\xFF");
  EXPECT_EQ(ReadJson(Shm({"--json", name}).out)["name"].text, UniqueName("a\"\n\xEF\xBF\xBD"));
}

}  // namespace
}  // namespace kelctl_test
