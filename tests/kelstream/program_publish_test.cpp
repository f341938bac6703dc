// Several processes: kelstream that publishes, kelstream that watches.

#include <dirent.h>
#include <fcntl.h>
#include <mqueue.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <thread>

#include "process.h"
#include "program_fixture.h"
#include "shared_totals.h"

namespace kelstream_test {
namespace {

// A file that grows while it is read: what one end writes the other reads.
class Pipe {
 public:
  explicit Pipe(std::string path) : path_(std::move(path)) { mkfifo(path_.c_str(), 0600); }
  ~Pipe() { Close(); }
  // Opens it once a reader has done so, and writes without waiting for him.
  void Write(const std::string &data) {
    if (fd_ == -1)
      fd_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    for (size_t at = 0; at < data.size();) {
      const ssize_t count = write(fd_, data.data() + at, data.size() - at);
      if (count <= 0)
        return;
      at += static_cast<size_t>(count);
    }
  }
  void Close() {
    if (fd_ != -1)
      close(fd_);
    fd_ = -1;
  }
  const std::string &path() const { return path_; }

 private:
  std::string path_;
  int fd_ = -1;
};

class PublishTest : public ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    std::signal(SIGPIPE, SIG_IGN);
    show_ = ReadFile(MediaPath("show.ts"));
    const std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
    for (int i = 0; i < 100; ++i) {
      name_ = "test-" + std::to_string(getpid()) + "-" + std::to_string(i) + "-" + test;
      if (IsFree())
        return;
    }
    FAIL() << "no name is free";
  }
  void TearDown() override {
    EXPECT_FALSE(Left(name_)) << "the segment is still there";
    EXPECT_TRUE(Queues().empty()) << Queues();
  }
  // Whether all that is made under this name can be: nothing of it is left over from
  // another process of this number, and somebody else's segments leave it a key.
  bool IsFree() const {
    for (const char *const end : {"", "1", "2", "a"}) {
      bool again = false;
      kelstream::SharedTotals *const totals = kelstream::CreateTotals(name_ + end, again);
      if (totals == nullptr)
        return false;
      kelstream::RemoveStale(totals);
    }
    return Queues().empty();
  }
  static bool Left(const std::string &name) {
    kelstream::SharedTotals *const totals = kelstream::FindTotals(name);
    if (totals != nullptr)
      kelstream::RemoveStale(totals);  // for the tests that follow
    return totals != nullptr;
  }
  // Queues and semaphores of these tests that are in the system.
  std::string Queues() const {
    std::string names;
    for (const char *const place : {"/dev/mqueue", "/dev/shm"}) {
      DIR *const directory = opendir(place);
      if (directory == nullptr)
        continue;
      while (const dirent *const entry = readdir(directory))
        if (std::string(entry->d_name).find("kelstream." + name_) != std::string::npos)
          names += std::string(entry->d_name) + " ";
      closedir(directory);
    }
    return names;
  }
  // mqueue is not a directory everywhere.
  bool QueueIsLeft(pid_t publisher) const {
    const std::string name = kelstream::QueueName(name_, publisher);
    const mqd_t queue = mq_open(name.c_str(), O_RDONLY);
    if (queue == -1)
      return false;
    mq_close(queue);
    mq_unlink(name.c_str());
    return true;
  }
  // Waits until what is published fulfils a condition.
  template <typename Condition>
  bool AwaitTotals(Condition condition) const {
    for (int i = 0; i < 60000; ++i) {
      kelstream::SharedTotals *const totals = kelstream::FindTotals(name_);
      const bool met = totals != nullptr && condition(*totals);
      if (totals != nullptr)
        kelstream::DetachTotals(totals);
      if (met)
        return true;
      usleep(1000);
    }
    return false;
  }
  // Two copies, so that what is in front of the last piece is read.
  std::string Stream() const { return show_ + show_; }

  std::string show_, name_;
};

TEST_F(PublishTest, WatcherSeesStreamsFilesAndTotals) {
  Pipe pipe(temp_.Path("show"));
  Program publisher({"--json", "--publish", name_, pipe.path(), MediaPath("tone.aac")});
  pipe.Write(Stream());
  Program watcher({"--watch", name_});
  EXPECT_TRUE(watcher.AwaitOut("stream 1, PID 257: aac LC, 44100 Hz, 1 ch\n")) << watcher.err();
  EXPECT_EQ(publisher.out(), "") << "it is still at work";
  pipe.Close();
  const Result seen = watcher.Wait();
  EXPECT_EQ(seen.status, 0) << seen.err;
  EXPECT_EQ(seen.err, "");
  EXPECT_EQ(seen.out,
            "found:    " + pipe.path() + ": stream 0, PID 256: h264 High, 480x272, 30 fps\n" +
                "found:    " + pipe.path() + ": stream 1, PID 257: aac LC, 44100 Hz, 1 ch\n" +
                "finished: " + pipe.path() + ": damaged\n" +
                "found:    " + MediaPath("tone.aac") + ": stream 0: aac LC, 48000 Hz, 2 ch\n" +
                "finished: " + MediaPath("tone.aac") + ": good\n" +
                "total: 2 files, 3 streams, 1256 frames, 506805 bytes\n");
  const Result report = publisher.Wait();
  EXPECT_EQ(report.status, 2) << "the second copy does not go on where the first one ended";
  EXPECT_TRUE(Contains(report.out, "\"frames\":360,\"keyframes\":12,")) << report.out;
  EXPECT_FALSE(QueueIsLeft(publisher.pid()));
}

TEST_F(PublishTest, EventsWaitForAWatcher) {
  Pipe pipe(temp_.Path("show"));
  Program publisher({"--publish", name_, pipe.path()});
  pipe.Write(Stream());
  ASSERT_TRUE(AwaitTotals([](auto &totals) { return totals.events_sent == 2u; }));
  Program watcher({"--watch", name_});
  EXPECT_TRUE(watcher.AwaitOut("stream 1"));
  EXPECT_TRUE(Contains(watcher.out(), "stream 0")) << watcher.out();
  // What is told while it does not look comes, too, when all is over.
  watcher.Signal(SIGSTOP);
  pipe.Close();
  EXPECT_EQ(publisher.Wait().status, 2);
  watcher.Signal(SIGCONT);
  EXPECT_TRUE(Contains(watcher.Wait().out, "finished: " + pipe.path() + ": damaged\ntotal: "));
}

// The oldest events give way when nobody takes them.
TEST_F(PublishTest, NewEventsAreKept) {
  Pipe pipe(temp_.Path("show"));
  std::vector<std::string> arguments = {"--publish", name_};
  for (int i = 0; i < 20; ++i)
    arguments.push_back(MediaPath("tone.aac"));
  arguments.push_back(pipe.path());
  Program publisher(arguments);
  pipe.Write(Stream());
  ASSERT_TRUE(AwaitTotals([](auto &totals) { return totals.events_sent == 42u; }));
  Program watcher({"--watch", name_});
  EXPECT_TRUE(watcher.AwaitOut("stream 1, PID 257"));
  pipe.Close();
  const std::string out = watcher.Wait().out;
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 8 + 1 + 1) << out;
}

TEST_F(PublishTest, NobodyNeedsToWatch) {
  std::vector<std::string> arguments = {"--json", "--publish", name_};
  for (int i = 0; i < 30; ++i)
    arguments.push_back(MediaPath("tone.aac"));
  Program publisher(arguments);
  const Result result = publisher.Wait();
  EXPECT_FALSE(QueueIsLeft(publisher.pid()));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
}

TEST_F(PublishTest, NothingToWatch) {
  const Result result = RunProgram({"--watch", name_});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "kelstream: no kelstream publishes under " + name_ + "\n");
}

TEST_F(PublishTest, NamesThatCannotBe) {
  for (const std::string &name : {std::string(), std::string(65, 'x'), std::string("a/b"),
                                  std::string("a b"), std::string("\xC3\xA4")}) {
    const Result publisher = RunProgram({"--publish", name, MediaPath("tone.aac")});
    EXPECT_EQ(publisher.status, 1);
    EXPECT_TRUE(Contains(publisher.err, "the name to publish under")) << publisher.err;
    EXPECT_EQ(RunProgram({"--watch", name}).status, 1);
  }
  name_ = std::string(64, 'x');
  EXPECT_EQ(RunProgram({"--publish", name_, MediaPath("tone.aac")}).status, 0);
}

TEST_F(PublishTest, KilledPublisher) {
  Pipe pipe(temp_.Path("show"));
  Program publisher({"--publish", name_, pipe.path()});
  pipe.Write(Stream());
  Program watcher({"--watch", name_});
  ASSERT_TRUE(watcher.AwaitOut("PID 257"));
  publisher.Signal(SIGKILL);
  EXPECT_EQ(publisher.Wait().signal, SIGKILL);
  const Result seen = watcher.Wait();
  EXPECT_EQ(seen.status, 1);
  EXPECT_TRUE(Contains(seen.out, "total: 0 files, 2 streams, ")) << seen.out;
  EXPECT_EQ(seen.err, "kelstream: the publisher, process " + std::to_string(publisher.pid()) +
                          ", was killed\n");
  EXPECT_FALSE(QueueIsLeft(publisher.pid()));
}

// What a killed run leaves in the system, with nobody to clear up.
class StaleTest : public PublishTest {
 protected:
  void SetUp() override {
    PublishTest::SetUp();
    Pipe pipe(temp_.Path("show"));
    Program publisher({"--publish", name_, pipe.path()});
    pipe.Write(Stream());
    publisher.Signal(SIGKILL);
    publisher.Wait();
    publisher_ = publisher.pid();
    ASSERT_NE(Queues(), "");
  }
  void TearDown() override {
    EXPECT_FALSE(QueueIsLeft(publisher_));
    PublishTest::TearDown();
  }
  pid_t publisher_ = 0;
};

TEST_F(StaleTest, DoesNotStopTheNext) {
  const Result result = RunProgram({"--publish", name_, MediaPath("tone.aac")});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
}

TEST_F(StaleTest, IsClearedUpByAWatcher) {
  const Result result = RunProgram({"--watch", name_});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "kelstream: the kelstream that published under " + name_ + " was killed\n");
}

// Found in its last moment: it has told everything, and is gone before its segment is.
TEST_F(PublishTest, OneThatJustEndedWasNotKilled) {
  bool again = false;
  kelstream::SharedTotals *const totals = kelstream::CreateTotals(name_, again);
  ASSERT_NE(totals, nullptr);
  ++totals->publisher_start;  // a process that is no more
  totals->state = kelstream::ShareState::kFinished;
  const Result result = RunProgram({"--watch", name_});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "kelstream: no kelstream publishes under " + name_ + "\n");
  kelstream::DetachTotals(totals);
}

TEST_F(PublishTest, StoppedPublisherLeavesNothing) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    Pipe pipe(temp_.Path("show" + std::to_string(number)));
    Program publisher({"--publish", name_, pipe.path()});
    pipe.Write(Stream());
    Program watcher({"--watch", name_});
    ASSERT_TRUE(watcher.AwaitOut("PID 257"));
    publisher.Signal(number);
    EXPECT_EQ(publisher.Wait().signal, number) << "as if it had not been caught";
    EXPECT_EQ(watcher.Wait().status, 0);
    EXPECT_EQ(Queues(), "");
    EXPECT_FALSE(QueueIsLeft(publisher.pid()));
  }
}

TEST_F(PublishTest, OnePublisherUnderAName) {
  Pipe pipe(temp_.Path("show"));
  Program publisher({"--json", "--publish", name_, pipe.path()});
  pipe.Write(Stream());
  Program watcher({"--watch", name_});
  ASSERT_TRUE(watcher.AwaitOut("PID 257"));
  const Result second = RunProgram({"--publish", name_, MediaPath("tone.aac")});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.err, "kelstream: cannot publish: process " +
                            std::to_string(publisher.pid()) + " publishes under this name\n");
  const Result third = RunProgram({"--watch", name_});
  EXPECT_EQ(third.status, 1);
  EXPECT_TRUE(Contains(third.err, "process " + std::to_string(watcher.pid()) + " watches "))
      << third.err;
  pipe.Close();
  EXPECT_EQ(watcher.Wait().status, 0);
  EXPECT_TRUE(Contains(publisher.Wait().out, "\"frames\":360"));
}

TEST_F(PublishTest, AWatcherMayLeaveAndAnotherCome) {
  Pipe pipe(temp_.Path("show"));
  Program publisher({"--publish", name_, pipe.path(), MediaPath("tone.aac")});
  pipe.Write(Stream());
  {
    Program watcher({"--watch", name_});
    ASSERT_TRUE(watcher.AwaitOut("PID 257"));
  }
  Program watcher({"--watch", name_});
  ASSERT_TRUE(AwaitTotals([&](auto &totals) { return totals.watcher == watcher.pid(); }));
  pipe.Close();
  const Result seen = watcher.Wait();
  EXPECT_EQ(seen.status, 0) << seen.err;
  EXPECT_TRUE(Contains(seen.out, "finished: " + pipe.path())) << seen.out;
  EXPECT_TRUE(Contains(seen.out, "total: 2 files, 3 streams"));
}

TEST_F(PublishTest, TwoPublishersDoNotDisturbEachOther) {
  Pipe first_pipe(temp_.Path("first")), second_pipe(temp_.Path("second"));
  Program first({"--publish", name_ + "1", first_pipe.path()});
  Program second({"--publish", name_ + "2", second_pipe.path()});
  first_pipe.Write(Stream());
  second_pipe.Write(video_ + video_);
  Program first_watcher({"--watch", name_ + "1"}), second_watcher({"--watch", name_ + "2"});
  EXPECT_TRUE(first_watcher.AwaitOut("PID 257"));
  EXPECT_TRUE(second_watcher.AwaitOut("640x360"));
  second.Signal(SIGKILL);
  EXPECT_EQ(second_watcher.Wait().status, 1);
  first_pipe.Close();
  const Result seen = first_watcher.Wait();
  EXPECT_EQ(seen.status, 0);
  EXPECT_TRUE(Contains(seen.out, "total: 1 file, 2 streams, 880 frames, 408262 bytes"))
      << seen.out;
  EXPECT_FALSE(Contains(seen.out, "640x360"));
  EXPECT_EQ(first.Wait().status, 2);
  EXPECT_FALSE(Left(name_ + "1") || Left(name_ + "2"));
}

// Names are found by a checksum of 16 bits: two that share one must not meet.
TEST_F(PublishTest, NamesWithTheSameKey) {
  bool again = false;
  kelstream::SharedTotals *const first = kelstream::CreateTotals(name_ + "a", again);
  ASSERT_NE(first, nullptr);
  first->state = kelstream::ShareState::kLive;
  // Made to look like another name's.
  std::string other(first->name);
  other.back() = 'b';
  other.copy(first->name, other.size());
  EXPECT_EQ(kelstream::FindTotals(name_ + "a"), nullptr);
  kelstream::SharedTotals *const second = kelstream::CreateTotals(name_ + "a", again);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, first);
  EXPECT_STREQ(second->name, (name_ + "a").c_str());
  second->state = kelstream::ShareState::kLive;
  kelstream::SharedTotals *const found = kelstream::FindTotals(name_ + "a");
  ASSERT_NE(found, nullptr);
  EXPECT_STREQ(found->name, (name_ + "a").c_str());
  EXPECT_EQ(kelstream::CreateTotals(name_ + "a", again), nullptr);
  EXPECT_TRUE(again) << "it is there";
  kelstream::DetachTotals(found);
  kelstream::RemoveStale(second);
  kelstream::RemoveStale(first);
}

TEST(ProcessTest, LifeAndDeath) {
  const kelstream::ProcessId self = kelstream::ThisProcess();
  EXPECT_EQ(self.number, getpid());
  EXPECT_TRUE(kelstream::IsAlive(self));
  EXPECT_FALSE(kelstream::IsAlive({self.number, self.start + 1})) << "the number used again";
  EXPECT_FALSE(kelstream::IsAlive({}));
}

}  // namespace
}  // namespace kelstream_test
