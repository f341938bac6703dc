// The lists of kelctl ipc and kelctl shm, where all that there is is known.

#include <gtest/gtest.h>
#include <pwd.h>

#include <filesystem>

#include "json_reader.h"
#include "own_system.h"
#include "program.h"
#include "things.h"

namespace kelctl_test {
namespace {

// Stays when the child becomes kelctl, and ends with its namespace.
bool MakeQueue(const char *name, long depth, long size, const char *message) {
  mq_attr attributes{};
  attributes.mq_maxmsg = depth;
  attributes.mq_msgsize = size;
  const mqd_t queue = mq_open(name, O_RDWR | O_CREAT, 0600, &attributes);
  return queue != -1 &&
         (message == nullptr || mq_send(queue, message, strlen(message), 0) == 0);
}

bool MakeThings() {
  const int private_one = shmget(IPC_PRIVATE, 4096, 0640);
  const int shared = shmget(0x1234, 100, IPC_CREAT | 0600);
  return MakeQueue("/player", 10, 272, "twelve bytes") && MakeQueue("/a", 2, 8, nullptr) &&
         sem_open("/player", O_CREAT, 0600, 10) != SEM_FAILED &&
         sem_open("/light", O_CREAT, 0600, 0) != SEM_FAILED && private_one != -1 &&
         shared != -1;
}

class ListTest : public testing::Test {
 protected:
  // An unprepared machine skips the test.
  Result Run(const std::vector<std::string> &words, Queues queues, bool things = true) {
    const std::string directory = temp_.Path("with blank");
    std::filesystem::create_directory(directory);
    Setting setting;
    setting.prepare = [=] {
      return EnterOwnSystem(queues, directory) && (!things || MakeThings());
    };
    return RunProgram(words, setting);
  }
  static std::string Owner() {
    // The program sees itself as the superuser.
    return getpwuid(0)->pw_name;
  }

  const TempDirectory temp_;
};

#define SKIP_UNLESS_PREPARED(result)   \
  if ((result).status == kNotPrepared) \
  GTEST_SKIP() << "no namespaces for us here"

TEST_F(ListTest, QueuesAndSemaphores) {
  const Result result = Run({"ipc"}, Queues::kMounted);
  SKIP_UNLESS_PREPARED(result);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "MESSAGE QUEUE  DEPTH  SIZE  PENDING  BYTES  OWNER  MODE\n"
            "/a                 2     8        0      0  " +
                Owner() +
                "   0600\n"
                "/player           10   272        1     12  " +
                Owner() +
                "   0600\n"
                "\n"
                "SEMAPHORE  VALUE  OWNER  MODE\n"
                "/light         0  " +
                Owner() +
                "   0600\n"
                "/player       10  " +
                Owner() + "   0600\n");
}

TEST_F(ListTest, QueuesAndSemaphoresInJson) {
  const Result result = Run({"ipc", "--json"}, Queues::kMounted);
  SKIP_UNLESS_PREPARED(result);
  EXPECT_EQ(result.status, 0);
  const JsonValue document = ReadJson(result.out);
  EXPECT_EQ(document["queue_directory"].kind, JsonValue::kText);
  ASSERT_EQ(document["queues"].size(), 2u);
  EXPECT_EQ(document["queues"][0]["name"].text, "/a");
  EXPECT_EQ(document["queues"][1]["pending_bytes"].number, 12);
  ASSERT_EQ(document["semaphores"].size(), 2u);
  EXPECT_EQ(document["semaphores"][1]["value"].number, 10);
}

TEST_F(ListTest, QueuesThatNobodyMounted) {
  const Result result = Run({"ipc"}, Queues::kHidden);
  SKIP_UNLESS_PREPARED(result);
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(Contains(result.err, "/dev/mqueue is not mounted")) << result.err;
  EXPECT_EQ(result.out.find("SEMAPHORE "), 0u);
  const Result json = Run({"ipc", "--json"}, Queues::kHidden);
  EXPECT_TRUE(Contains(json.err, "/dev/mqueue is not mounted")) << json.err;
  const JsonValue document = ReadJson(json.out);
  EXPECT_TRUE(document["queue_directory"].null());
  EXPECT_TRUE(document["queues"].null());
  EXPECT_EQ(document["semaphores"].size(), 2u);
  const Result named = Run({"ipc", "/a"}, Queues::kHidden);
  EXPECT_EQ(named.status, 0);
  EXPECT_EQ(named.err, "");
  EXPECT_TRUE(Contains(named.out, "  depth    2 messages\n"));
}

TEST_F(ListTest, AnEmptySystem) {
  const Result result = Run({"ipc"}, Queues::kMounted, false);
  SKIP_UNLESS_PREPARED(result);
  EXPECT_EQ(result.out, "no message queues\n\nno semaphores\n");
  EXPECT_EQ(Run({"shm"}, Queues::kMounted, false).out, "no shared memory segments\n");
  const Result json = Run({"ipc", "--json"}, Queues::kMounted, false);
  const JsonValue document = ReadJson(json.out);
  EXPECT_EQ(document["queues"].size(), 0u);
  EXPECT_EQ(document["semaphores"].size(), 0u);
  EXPECT_EQ(Run({"shm", "--json"}, Queues::kMounted, false).out, "{\"segments\":[]}\n");
}

TEST_F(ListTest, Segments) {
  const Result result = Run({"shm"}, Queues::kHidden);
  SKIP_UNLESS_PREPARED(result);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 3);
  EXPECT_TRUE(Contains(result.out, "\n0x00001234  ")) << result.out;
  EXPECT_TRUE(Contains(result.out, "\n0x00000000  ")) << result.out;
  EXPECT_TRUE(Contains(result.out, "  " + Owner() + "   0640\n")) << result.out;
}

}  // namespace
}  // namespace kelctl_test
