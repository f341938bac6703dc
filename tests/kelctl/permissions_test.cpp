// What this user may not look at.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "json_reader.h"
#include "program.h"
#include "things.h"

namespace kelctl_test {
namespace {

// The superuser may do everything, so kelctl runs as somebody else then.
bool BecomeNobody() {
  constexpr uid_t kNobody = 65534;
  return geteuid() != 0 || (setgid(kNobody) == 0 && setuid(kNobody) == 0);
}

Result RunAsNobody(const std::vector<std::string> &words) {
  Setting setting;
  setting.prepare = BecomeNobody;
  return RunProgram(words, setting);
}

// 127: nobody may not even look into the build directory.
#define SKIP_UNLESS_STARTED(result)                              \
  if ((result).status == kNotPrepared || (result).status == 127) \
  GTEST_SKIP() << "kelctl cannot run as another user here"

TEST(Permissions, Queue) {
  const RealQueue queue(UniqueName("secret"), 2, 16);
  ASSERT_TRUE(queue.ok() && fchmod(queue.descriptor(), 0) == 0);
  const Result shown = RunAsNobody({"ipc", "--json", queue.name()});
  SKIP_UNLESS_STARTED(shown);
  EXPECT_EQ(shown.status, 1);
  EXPECT_EQ(shown.err,
            "kelctl: cannot read message queue " + queue.name() + ": Permission denied\n");
  const JsonValue document = ReadJson(shown.out);
  EXPECT_EQ(document["names"][0]["queue"]["error"].text, "Permission denied");
  const Result drained = RunAsNobody({"ipc", "--drain", "--yes", queue.name()});
  EXPECT_EQ(drained.status, 1);
  EXPECT_EQ(drained.out, "");
  EXPECT_EQ(drained.err, shown.err);
}

TEST(Permissions, Semaphore) {
  const RealSemaphore semaphore(UniqueName("secret"), 1);
  const std::string path = "/dev/shm/sem." + semaphore.name().substr(1);
  ASSERT_TRUE(semaphore.ok() && chmod(path.c_str(), 0) == 0);
  const Result shown = RunAsNobody({"ipc", semaphore.name()});
  SKIP_UNLESS_STARTED(shown);
  EXPECT_EQ(shown.status, 1);
  EXPECT_EQ(shown.err,
            "kelctl: cannot read semaphore " + semaphore.name() + ": Permission denied\n");
  EXPECT_TRUE(Contains(shown.out, "cannot be read: Permission denied\n  owner    "));
}

TEST(Permissions, NotTheirsToRemove) {
  if (geteuid() != 0)
    GTEST_SKIP() << "needs two users";
  const RealQueue queue(UniqueName("kept"), 2, 16);
  const RealSemaphore semaphore(queue.name(), 1);
  const RealSegment segment(16);
  ASSERT_TRUE(queue.ok() && semaphore.ok() && segment.ok());
  const Result result = RunAsNobody({"ipc", "--remove", "--yes", "--json", queue.name()});
  SKIP_UNLESS_STARTED(result);
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.err, "cannot remove message queue " + queue.name() + ": "))
      << result.err;
  EXPECT_EQ(ReadJson(result.out)["names"][0]["removed"].size(), 0u);
  EXPECT_TRUE(queue.exists() && semaphore.exists());
  const Result shared = RunAsNobody({"shm", "--remove", "--yes", segment.name()});
  EXPECT_EQ(shared.status, 1);
  EXPECT_EQ(shared.err, "kelctl: cannot remove segment " + std::to_string(segment.id()) +
                            ": Operation not permitted\n");
  EXPECT_TRUE(segment.exists());
}

TEST(Permissions, Segment) {
  const RealSegment segment(64);
  ASSERT_TRUE(segment.ok());
  shmid_ds settings{};
  ASSERT_EQ(shmctl(segment.id(), IPC_STAT, &settings), 0);
  settings.shm_perm.mode = 0;
  ASSERT_EQ(shmctl(segment.id(), IPC_SET, &settings), 0);
  const Result shown = RunAsNobody({"shm", segment.name()});
  SKIP_UNLESS_STARTED(shown);
  EXPECT_EQ(shown.status, 1);
  EXPECT_EQ(shown.err, "kelctl: cannot attach segment " + std::to_string(segment.id()) +
                           ": Permission denied\n");
  EXPECT_TRUE(Contains(shown.out, "\n  size      64 bytes\n")) << "that much is known";
  EXPECT_FALSE(Contains(shown.out, "00000000  "));
  EXPECT_EQ(RunAsNobody({"shm", "--bytes=0", segment.name()}).status, 0);
}

}  // namespace
}  // namespace kelctl_test
