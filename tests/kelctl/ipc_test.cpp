// kelctl ipc with real queues and semaphores.

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "json_reader.h"
#include "program.h"
#include "things.h"

namespace kelctl_test {
namespace {

Result Ipc(std::vector<std::string> words, const Setting &setting = {}) {
  words.insert(words.begin(), "ipc");
  return RunProgram(words, setting);
}

class IpcTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(queue_.ok() && semaphore_.ok());
    ASSERT_TRUE(queue_.Send("one") && queue_.Send("three"));
  }

  const std::string name_ = UniqueName("both");
  const RealQueue queue_{name_, 4, 64};
  const RealSemaphore semaphore_{name_, 7};
};

TEST_F(IpcTest, ShowsBoth) {
  const Result result = Ipc({name_});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out.find("message queue " + name_ +
                            "\n  depth    4 messages\n"
                            "  size     64 bytes a message, or 48 behind the library's header\n"
                            "  pending  2 messages, 8 bytes\n  owner    "),
            0u)
      << result.out;
  EXPECT_TRUE(
      Contains(result.out, ", mode 0600\nsemaphore " + name_ + "\n  value    7\n  owner    "));
}

TEST_F(IpcTest, TheSlashMayBeLeftOut) {
  EXPECT_EQ(Ipc({name_.substr(1)}).out, Ipc({name_}).out);
}

TEST_F(IpcTest, Json) {
  const JsonValue document = ReadJson(Ipc({"--json", name_}).out);
  const JsonValue &entry = document["names"][0];
  EXPECT_EQ(entry["name"].text, name_);
  EXPECT_EQ(entry["queue"]["depth"].number, 4);
  EXPECT_EQ(entry["queue"]["size"].number, 64);
  EXPECT_EQ(entry["queue"]["pending"].number, 2);
  EXPECT_EQ(entry["queue"]["pending_bytes"].number, 8);
  EXPECT_TRUE(entry["queue"]["notified_pid"].null());
  EXPECT_EQ(entry["queue"]["uid"].number, geteuid());
  EXPECT_EQ(entry["queue"]["mode"].text, "0600");
  EXPECT_EQ(entry["semaphore"]["value"].number, 7);
  EXPECT_EQ(entry["semaphore"]["mode"].text, "0600");
  EXPECT_EQ(entry["removed"].size(), 0u);
}

TEST_F(IpcTest, OnlyOneKind) {
  EXPECT_FALSE(Contains(Ipc({"--only", "queue", name_}).out, "semaphore"));
  EXPECT_EQ(Ipc({"--only=semaphore", name_}).out.find("semaphore " + name_), 0u);
}

TEST_F(IpcTest, TellsWhoIsNotified) {
  sigevent event{};
  event.sigev_notify = SIGEV_NONE;
  const RealQueue empty(UniqueName("notify"), 2, 16);
  ASSERT_EQ(mq_notify(empty.descriptor(), &event), 0);
  EXPECT_TRUE(Contains(Ipc({empty.name()}).out,
                       "\n  notifies process " + std::to_string(getpid()) + "\n"));
  EXPECT_EQ(
      ReadJson(Ipc({"--json", empty.name()}).out)["names"][0]["queue"]["notified_pid"].number,
      getpid());
}

TEST_F(IpcTest, Drains) {
  const Result result = Ipc({"--drain", "--yes", name_});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, "message queue " + name_ + ": 2 messages taken, 0 pending\n");
  EXPECT_EQ(queue_.pending(), 0);
  EXPECT_TRUE(Contains(Ipc({name_}).out, "\n  value    7\n")) << "senders keep their turns";
  const JsonValue document = ReadJson(Ipc({"--drain", "--yes", "--json", name_}).out);
  EXPECT_EQ(document["names"][0]["drained"].number, 0);
}

TEST_F(IpcTest, DrainsAllThatIsPendingInJson) {
  const JsonValue document = ReadJson(Ipc({"--drain", "--yes", "--json", name_}).out);
  EXPECT_EQ(document["names"][0]["drained"].number, 2);
  EXPECT_EQ(document["names"][0]["queue"]["pending"].number, 2) << "before";
}

TEST_F(IpcTest, DrainingEndsAlsoWhenSendersGoOn) {
  // Blocked, as its queue is full; each message taken lets another one in.
  const mqd_t blocking = mq_open(name_.c_str(), O_WRONLY);
  ASSERT_NE(blocking, -1);
  std::thread sender([&] {
    for (int i = 0; i < 6; ++i)
      mq_send(blocking, "more", 4, 0);
  });
  while (queue_.pending() < 4)
    std::this_thread::yield();
  const Result result = Ipc({"--drain", "--yes", name_});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(Contains(result.out, ": 4 messages taken, ")) << result.out;
  sender.join();
  EXPECT_EQ(queue_.pending(), 4);
  mq_close(blocking);
}

TEST_F(IpcTest, RemovesBoth) {
  const Result result = Ipc({"--remove", "--yes", name_});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "removed message queue " + name_ + " with 2 messages and semaphore " +
                            name_ + "\n");
  EXPECT_FALSE(queue_.exists());
  EXPECT_FALSE(semaphore_.exists());
  const Result again = Ipc({"--remove", "--yes", name_});
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(again.err, "kelctl: there is no message queue or semaphore " + name_ + "\n");
}

TEST_F(IpcTest, RemovesOne) {
  const JsonValue first =
      ReadJson(Ipc({"--remove", "--yes", "--json", "--only=semaphore", name_}).out);
  ASSERT_EQ(first["names"][0]["removed"].size(), 1u);
  EXPECT_EQ(first["names"][0]["removed"][0].text, "semaphore");
  EXPECT_TRUE(queue_.exists());
  EXPECT_FALSE(semaphore_.exists());
  const JsonValue second = ReadJson(Ipc({"--remove", "--yes", "--json", name_}).out);
  ASSERT_EQ(second["names"][0]["removed"].size(), 1u);
  EXPECT_EQ(second["names"][0]["removed"][0].text, "queue");
  EXPECT_FALSE(queue_.exists());
}

TEST_F(IpcTest, NothingIsTakenWithoutAWord) {
  for (const std::string action : {"--drain", "--remove"}) {
    const Result result = Ipc({action, name_}, {.input = "y\n"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(Contains(result.err, "No terminal to ask on")) << result.err;
    EXPECT_TRUE(Contains(result.err, "--yes")) << result.err;
    EXPECT_TRUE(Contains(result.err, name_)) << result.err;
  }
  EXPECT_EQ(queue_.pending(), 2);
  EXPECT_TRUE(semaphore_.exists());
}

TEST_F(IpcTest, AsksOnATerminal) {
  constexpr char kEndOfFile[] = "\4";
  for (const std::string answer : {"n\n", "\n", "maybe\n", "yesterday\n", kEndOfFile}) {
    const Result result = Ipc({"--remove", name_}, {.keys = answer});
    EXPECT_EQ(result.status, 1) << answer;
    EXPECT_EQ(result.out, "") << answer;
    EXPECT_TRUE(Contains(result.err, "Remove message queue " + name_ +
                                         " with 2 messages and semaphore " + name_ +
                                         "? [y/N] "))
        << result.err;
    EXPECT_TRUE(queue_.exists() && semaphore_.exists()) << answer;
  }
  const Result drain = Ipc({"--drain", name_}, {.keys = "yes\n"});
  EXPECT_EQ(drain.status, 0);
  EXPECT_TRUE(
      Contains(drain.err, "Take 2 messages out of message queue " + name_ + "? [y/N] "));
  EXPECT_EQ(queue_.pending(), 0);
  EXPECT_EQ(Ipc({"--remove", name_}, {.keys = "y\n"}).status, 0);
  EXPECT_FALSE(queue_.exists() || semaphore_.exists());
}

TEST_F(IpcTest, ATerminalWithoutItsKeyboardIsNotAsked) {
  const Result result = Ipc({"--drain", name_}, {.keys = "", .keyboard = false});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.err, "No terminal to ask on")) << result.err;
  EXPECT_EQ(queue_.pending(), 2);
}

TEST_F(IpcTest, OthersHaveTheirTurnWhenOneIsMissing) {
  const std::string missing = UniqueName("missing");
  const Result result = Ipc({"--drain", "--yes", missing, name_});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "kelctl: there is no message queue or semaphore " + missing + "\n");
  EXPECT_EQ(queue_.pending(), 0);
  const Result show = Ipc({"--json", missing, name_});
  EXPECT_EQ(show.status, 1);
  const JsonValue document = ReadJson(show.out);
  EXPECT_TRUE(document["names"][0]["queue"].null());
  EXPECT_TRUE(document["names"][0]["semaphore"].null());
  EXPECT_EQ(document["names"][1]["queue"]["depth"].number, 4);
}

TEST_F(IpcTest, NothingIsDoneWhenANameIsWrong) {
  EXPECT_EQ(Ipc({"--remove", "--yes", name_, "a/b"}).status, 2);
  EXPECT_TRUE(queue_.exists() && semaphore_.exists());
}

TEST(Ipc, ASemaphoreAloneHasNothingToDrain) {
  const RealSemaphore semaphore(UniqueName("alone"), 1);
  ASSERT_TRUE(semaphore.ok());
  const Result result = Ipc({"--drain", "--yes", semaphore.name()});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "kelctl: " + semaphore.name() +
                            " is a semaphore only: there is nothing to drain\n");
}

TEST(Ipc, AQueueAloneHasNoHeaderToTellOf) {
  const RealQueue queue(UniqueName("raw"), 2, 32);
  ASSERT_TRUE(queue.ok());
  EXPECT_TRUE(Contains(Ipc({queue.name()}).out, "\n  size     32 bytes a message\n"));
}

TEST(Ipc, TheLibrarysQueue) {
  const std::string name = UniqueName("library");
  KEL_IPC *const ipc = KEL_IPCOpen(name.c_str(), 3, 100, 0);
  ASSERT_NE(ipc, nullptr);
  const std::string shown = Ipc({name}).out;
  const Result removed = Ipc({"--remove", "--yes", name});
  free(KEL_IPCGetMsg(ipc, nullptr));
  KEL_IPCClose(ipc);
  mq_unlink(name.c_str());
  EXPECT_TRUE(Contains(shown, "  size     116 bytes a message, or 100 behind the library's"));
  EXPECT_TRUE(Contains(shown, "  value    3\n"));
  EXPECT_EQ(removed.status, 0);
}

TEST(Ipc, OddNames) {
  const RealQueue queue(UniqueName("a\"b\n\x1B\xFF"), 2, 32);
  const RealSemaphore semaphore(queue.name(), 1);
  ASSERT_TRUE(queue.ok() && semaphore.ok());
  EXPECT_EQ(
      Ipc({queue.name()}).out.find("message queue " + UniqueName("a\"b\\x0a\\x1b\\xff\n")), 0u);
  const JsonValue one = ReadJson(Ipc({"--json", queue.name()}).out);
  EXPECT_EQ(one["names"][0]["name"].text, UniqueName("a\"b\n\x1B\xEF\xBF\xBD"));
  const JsonValue list = ReadJson(Ipc({"--json"}).out);
  const auto &semaphores = list["semaphores"].items;
  EXPECT_TRUE(std::any_of(semaphores.begin(), semaphores.end(), [&](const JsonValue &item) {
    return item["name"].text == UniqueName("a\"b\n\x1B\xEF\xBF\xBD");
  }));
}

TEST(Ipc, AFileThatIsNoSemaphore) {
  const std::string name = UniqueName("short");
  const std::string path = "/dev/shm/sem." + name.substr(1);
  const int file = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY, 0600);
  ASSERT_NE(file, -1);
  const Result result = Ipc({name});
  const Result removed = Ipc({"--remove", "--yes", name});
  unlink(path.c_str());
  close(file);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "kelctl: cannot read semaphore " + name + ": not a semaphore's file\n");
  EXPECT_EQ(removed.status, 0);
}

void ExpectTooLong(const std::vector<std::string> &options, size_t length) {
  const std::string name = "/" + std::string(length, 'n');
  std::vector<std::string> words = options;
  words.push_back(name);
  const Result result = Ipc(words);
  EXPECT_EQ(result.status, 2) << length;
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err.find("kelctl: a name is too long, with " + std::to_string(length) +
                            " bytes behind the '/': a message queue's has 255 at most, a "
                            "semaphore's 251: " +
                            name + "\n"),
            0u)
      << result.err;
}

TEST(Ipc, NamesThatAreTooLong) {
  ExpectTooLong({}, 256);
  ExpectTooLong({}, 300);
  ExpectTooLong({"--json"}, 256);
  ExpectTooLong({"--remove", "--yes"}, 256);
  ExpectTooLong({"--drain", "--yes"}, 256);
  ExpectTooLong({"--only", "queue"}, 256);
  ExpectTooLong({"--only", "semaphore"}, 252);
}

TEST(Ipc, ATooLongNameLeavesTheOthersAlone) {
  const RealQueue queue(UniqueName("beside"), 2, 16);
  ASSERT_TRUE(queue.ok());
  EXPECT_EQ(Ipc({"--remove", "--yes", queue.name(), std::string(300, 'n')}).status, 2);
  EXPECT_TRUE(queue.exists());
}

std::string Lengthened(const std::string &name, size_t length) {
  return name + std::string(length - (name.size() - 1), 'n');
}

TEST(Ipc, TheLongestNamesThatThereAre) {
  const RealQueue queue(Lengthened(UniqueName("queue"), 255), 2, 16);
  const RealSemaphore semaphore(Lengthened(UniqueName("semaphore"), 251), 3);
  ASSERT_TRUE(queue.ok() && semaphore.ok());
  EXPECT_TRUE(Contains(Ipc({queue.name()}).out, "message queue " + queue.name() + "\n"));
  const Result result = Ipc({"--only", "semaphore", semaphore.name()});
  EXPECT_TRUE(Contains(result.out, "semaphore " + semaphore.name() + "\n  value    3\n"));
  EXPECT_EQ(Ipc({"--remove", "--yes", queue.name(), semaphore.name()}).status, 0);
  EXPECT_FALSE(queue.exists() || semaphore.exists());
}

TEST(Ipc, ANameThatOnlyAQueueCouldHave) {
  const std::string name = "/" + std::string(252, 'n');
  EXPECT_EQ(Ipc({name}).err, "kelctl: there is no message queue or semaphore " + name + "\n");
}

}  // namespace
}  // namespace kelctl_test
