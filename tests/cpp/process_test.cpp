// Between processes; files, directories and plug-ins.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "kelcore.hpp"

namespace {

using namespace std::chrono_literals;

struct command {
  int32_t what;
  char name[12];
};

class CppIpc : public testing::Test {
 protected:
  ~CppIpc() override { kel::remove_ipc(name_.c_str()); }
  std::string name_ = "/kelcore-cpp-" + std::to_string(getpid());
};

TEST_F(CppIpc, CarriesPayloadsAndReasons) {
  auto queue = kel::ipc<command>::open(name_.c_str(), 2).value_or_throw();
  EXPECT_TRUE(queue.send(1, {10, "low"}, 1s));
  EXPECT_TRUE(queue.send(2, {20, "high"}, kel::infinite, 5));
  EXPECT_TRUE(queue.send(3, {30, "none"}, kel::no_wait).timed_out());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(queue.send(3, {30, "none"}, 20ms).timed_out());
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 19ms);
  const auto first = queue.receive(1s);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->header.word, 2u);
  EXPECT_STREQ(first->payload.name, "high");
  EXPECT_EQ(queue.receive(kel::infinite)->payload.what, 10);
  EXPECT_TRUE(queue.receive(kel::no_wait).outcome().timed_out());
}

TEST_F(CppIpc, LongTimeOutsDoNotWrapAround) {
  auto queue = kel::ipc<command>::open(name_.c_str(), 1).value_or_throw();
  // 4295 ms are 33 microseconds to a 32-bit count of nanoseconds.
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(queue.receive(4295ms).outcome().timed_out());
  // The wait goes by the wall clock.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 4293ms);
}

TEST_F(CppIpc, RefusesMessagesOfAnotherLength) {
  auto queue = kel::ipc<command>::open(name_.c_str(), 1).value_or_throw();
  kel::ipc_message<command> shorter{};
  shorter.header.length = 3;
  EXPECT_EQ(KEL_IPCSend(queue.native_handle(), &shorter, 0, 100), 0);
  EXPECT_TRUE(queue.receive(1s).error() == std::errc::bad_message);
}

TEST_F(CppIpc, BlocksComeWithTheirLength) {
  auto queue = kel::ipc_blocks::open(name_.c_str(), 2, 16).value_or_throw();
  const uint8_t block[3] = {1, 2, 3};
  uint8_t to[20] = {};
  EXPECT_TRUE(queue.send(block));
  EXPECT_EQ(*queue.receive(to, 1s), 3u);
  EXPECT_EQ(to[2], 3);
  EXPECT_TRUE(queue.send({}));
  EXPECT_EQ(*queue.receive(to, kel::infinite), 0u);
  EXPECT_TRUE(queue.receive(to, 5ms).error() == std::errc::timed_out);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(queue.receive(to, kel::no_wait).error() == std::errc::timed_out);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 1min);
  EXPECT_TRUE(queue.receive(kel::writable_bytes(to).first(2), 1s).error() ==
              std::errc::no_buffer_space);
  EXPECT_TRUE(queue.send(to).error() == std::errc::message_size);
}

TEST(CppIpcOpen, SaysWhyItFails) {
  EXPECT_TRUE(kel::ipc<command>::open("no slash", 1).error() == std::errc::invalid_argument);
  EXPECT_TRUE(kel::remove_ipc("/kelcore-cpp-no-such-queue").error() ==
              std::errc::no_such_file_or_directory);
}

// Runs `look` in a process of its own; tells whether it was content.
template <class Look>
bool in_another_process(Look look) {
  const pid_t child = fork();
  if (child == 0)
    _exit(look() ? 0 : 1);
  int how = -1;
  return child > 0 && waitpid(child, &how, 0) == child && how == 0;
}

TEST(CppSemaphore, LeavingKeepsTheName) {
  const std::string name = "/kelcore-cpp-sema-" + std::to_string(getpid());
  {
    auto mine = kel::semaphore::open(name.c_str(), 3).value_or_throw();
    EXPECT_TRUE(in_another_process([&] {
      auto theirs = kel::semaphore::open(name.c_str(), 7);
      return theirs && theirs->get(1s).ok() && theirs->leave().ok() && !*theirs;
    }));
    auto again = kel::semaphore::open_existing(name.c_str());
    ASSERT_TRUE(again) << "leaving removed the name";
    EXPECT_EQ(again->count(), 2);
  }
  EXPECT_FALSE(kel::semaphore::open_existing(name.c_str())) << "an owner's end removes it";
}

TEST(CppEvent, LeavingKeepsTheName) {
  const std::string name = "/kelcore-cpp-event-" + std::to_string(getpid());
  {
    auto mine = kel::event::open(name.c_str()).value_or_throw();
    EXPECT_TRUE(in_another_process([&] {
      auto theirs = kel::event::open(name.c_str());
      return theirs && theirs->send().ok() && theirs->leave().ok() && !*theirs;
    }));
    EXPECT_TRUE(in_another_process([&] {
      auto theirs = kel::event::open(name.c_str());
      return theirs && theirs->pending() == 1;
    })) << "leaving removed the name";
    EXPECT_TRUE(mine.wait(kel::no_wait));
  }
  EXPECT_FALSE(kel::semaphore::open_existing(name.c_str())) << "an owner's end removes it";
}

struct totals {
  std::atomic<int> frames;
};

// A segment of this test's own: the checksum of a name may be somebody else's.
kel::shared_memory<totals> new_segment(std::string &name) {
  for (int i = 0;; ++i) {
    name = "kelcore-cpp-" + std::to_string(getpid()) + "-" + std::to_string(i);
    auto opened = kel::shared_memory<totals>::open(name.c_str());
    if (opened && opened->created())
      return std::move(*opened);
    if (opened)
      opened->leave();
  }
}

TEST(CppSharedMemory, IsOneRecordInTwoProcesses) {
  std::string name;
  const auto mine = new_segment(name);
  EXPECT_TRUE(mine.created());
  EXPECT_EQ(mine->frames, 0);
  EXPECT_TRUE(in_another_process([&] {
    auto theirs = kel::shared_memory<totals>::open(name.c_str());
    return theirs && !theirs->created() && ((*theirs)->frames += 5) == 5 &&
           theirs->leave().ok();
  }));
  EXPECT_EQ(mine->frames, 5);
  {
    auto again = kel::shared_memory<totals>::open(name.c_str()).value_or_throw();
    EXPECT_FALSE(again.created()) << "leaving did not remove it";
    EXPECT_TRUE(again.leave());
  }
}

TEST(CppSharedMemory, RefusesNamesThatWouldNotBeShared) {
  EXPECT_TRUE(kel::shared_memory<totals>::open("").error() == std::errc::invalid_argument);
  EXPECT_TRUE(kel::shared_memory<totals>::open(nullptr).error() == std::errc::invalid_argument);
}

class CppFile : public testing::Test {
 protected:
  CppFile() {
    if (mkdtemp(dir_.data()) == nullptr)
      std::abort();
    path_ = dir_ + "/a";
  }
  ~CppFile() override {
    unlink(path_.c_str());
    rmdir(dir_.c_str());
  }
  std::string dir_ = testing::TempDir() + "kelcore-cpp-XXXXXX";
  std::string path_;
};

TEST_F(CppFile, ReadsWhatWasWritten) {
  {
    auto out = kel::file::open(path_.c_str(), kel::file_mode::write).value_or_throw();
    EXPECT_TRUE(out.write_text("first\nsecond\n"));
    EXPECT_TRUE(out.write({}));
    EXPECT_TRUE(out.sync());
    EXPECT_EQ(*out.size(), 13u);
  }
  auto in = kel::file::open(path_.c_str(), kel::file_mode::read).value_or_throw();
  char line[32];
  EXPECT_EQ(*in.read_line(line), "first\n");
  EXPECT_EQ(*in.position(), 6u);
  EXPECT_TRUE(in.seek(-3, kel::seek_from::end));
  uint8_t bytes[8];
  EXPECT_EQ(*in.read({}), 0u);
  EXPECT_EQ(*in.read(bytes), 3u);
  EXPECT_EQ(*in.read(bytes), 0u);
  EXPECT_TRUE(in.read_line(line).error() == kel::errc::end_of_data);
  EXPECT_EQ(kel::file_attributes(path_.c_str())->size, 13u);
}

TEST_F(CppFile, TellsFailuresFromTheEnd) {
  auto out = kel::file::open(path_.c_str(), kel::file_mode::write).value_or_throw();
  uint8_t bytes[8];
  EXPECT_TRUE(out.read(bytes).error() == std::errc::bad_file_descriptor);
  EXPECT_TRUE(out.seek(-1).error() == std::errc::invalid_argument);
  EXPECT_TRUE(kel::file::open("/", kel::file_mode::write).error() == std::errc::is_a_directory);
  EXPECT_TRUE(kel::file::open((path_ + "/x").c_str(), kel::file_mode::read).error() ==
              std::errc::not_a_directory);
  EXPECT_TRUE(kel::file_attributes((dir_ + "/none").c_str()).error() ==
              std::errc::no_such_file_or_directory);
  EXPECT_TRUE(kel::make_directory(dir_.c_str()).error() == std::errc::file_exists);
}

TEST_F(CppFile, ModesDoWhatTheySay) {
  const char *path = path_.c_str();
  EXPECT_FALSE(kel::file::open(path, kel::file_mode::update));
  ASSERT_TRUE(kel::file::open(path, kel::file_mode::update_or_create)->write_text("abc"));
  ASSERT_TRUE(kel::file::open(path, kel::file_mode::append)->write_text("def"));
  ASSERT_TRUE(kel::file::open(path, kel::file_mode::update_or_create)->write_text("X"));
  EXPECT_EQ(kel::file_attributes(path)->size, 6u);
  auto replaced = kel::file::open(path, kel::file_mode::replace).value_or_throw();
  EXPECT_EQ(*replaced.size(), 0u);
  EXPECT_TRUE(replaced.write_text("12345678"));
  EXPECT_TRUE(replaced.truncate(4));
  EXPECT_TRUE(replaced.seek(0));
  uint8_t bytes[8];
  EXPECT_EQ(*replaced.read(bytes), 4u);
}

TEST_F(CppFile, DirectoriesLeaveOutThemselves) {
  ASSERT_TRUE(kel::file::open(path_.c_str(), kel::file_mode::write));
  auto dir = kel::directory::open(dir_.c_str()).value_or_throw();
  EXPECT_STREQ(dir.next(), "a");
  EXPECT_EQ(dir.next(), nullptr);
  dir.rewind();
  EXPECT_STREQ(dir.next(), "a");
  EXPECT_TRUE(kel::file_exists(path_.c_str()));
  EXPECT_TRUE(kel::directory::open(path_.c_str()).error() == std::errc::not_a_directory);
}

TEST(CppLibrary, FindsSymbols) {
  const auto plugin = kel::library::load(PLUGIN_PATH).value_or_throw();
  auto *answer = plugin.symbol<int()>("plugin_answer");
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42);
  EXPECT_EQ(plugin.symbol<int()>("no_such_symbol"), nullptr);
  EXPECT_FALSE(kel::library::load("no-such-library.so"));
}

}  // namespace
