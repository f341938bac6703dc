// Shared memory segments, in one process and in two.

#include "kelcore_shm.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include "faults.h"
#include "kelcore_hash.h"
#include "trace_capture.h"

namespace {

key_t KeyOf(const std::string &name) {
  return static_cast<key_t>(KEL_Hash_crc16(name.data(), static_cast<uint32_t>(name.size())) &
                            0xFFFF);
}

// A name of this process whose key is neither 0 nor taken; its segment is gone
// at the end.
class Name {
 public:
  Name() {
    for (int i = 0;; ++i) {
      text = "kelcore_shm_test_" + std::to_string(getpid()) + "_" + std::to_string(i);
      if (KeyOf(text) != 0 && shmget(KeyOf(text), 0, 0) == -1 && errno == ENOENT)
        return;
    }
  }
  ~Name() {
    const int id = shmget(KeyOf(text), 0, 0);
    if (id != -1)
      shmctl(id, IPC_RMID, nullptr);
  }
  const char *c_str() const { return text.c_str(); }
  bool exists() const { return shmget(KeyOf(text), 0, 0) != -1; }
  std::string text;
};

int32_t IdOf(const void *data) {
  int32_t id;
  memcpy(&id, static_cast<const char *>(data) - 16, sizeof id);
  return id;
}

void *Malloc(const char *name, uint32_t size, uint8_t *created = nullptr) {
  return KEL_ShmMalloc(name, size, created, "caller.c", 12, "main");
}

TEST(ShmMalloc, MakesASegmentOfTheRoundedSizeAndAHeader) {
  Name name;
  uint8_t created = 7;
  void *data = Malloc(name.c_str(), 1, &created);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(created, 1);
  const int32_t id = IdOf(data);
  EXPECT_EQ(id, shmget(KeyOf(name.text), 0, 0));
  shmid_ds status{};
  ASSERT_EQ(shmctl(id, IPC_STAT, &status), 0);
  EXPECT_EQ(status.shm_segsz, 32u);
  EXPECT_EQ(status.shm_perm.mode & 0777, 0666);
  EXPECT_EQ(status.shm_nattch, 1u);
  memset(data, 0xEE, 16);
  KEL_ShmFree(data);
  EXPECT_FALSE(name.exists());
}

TEST(ShmMalloc, RoundsUpTo16AndAsksExclusivelyFirst) {
  std::vector<std::pair<size_t, int>> calls;
  faults::shmget.Replace([&](key_t, size_t size, int flags) {
    calls.emplace_back(size, flags);
    errno = calls.size() % 2 == 1 ? EEXIST : EINVAL;
    return -1;
  });
  for (uint32_t size : {0u, 16u, 17u})
    StdoutOf([&] { EXPECT_EQ(Malloc("x", size), nullptr); });
  EXPECT_EQ(calls, (std::vector<std::pair<size_t, int>>{
                       {16, 0x7B6}, {16, 0}, {32, 0x7B6}, {32, 0}, {48, 0x7B6}, {48, 0}}));
}

TEST(ShmMalloc, ReachesTheExistingSegment) {
  Name name;
  uint8_t created = 7;
  auto *one = static_cast<char *>(Malloc(name.c_str(), 100, nullptr));
  auto *other = static_cast<char *>(Malloc(name.c_str(), 50, &created));
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(created, 0);
  EXPECT_NE(one, other) << "attached twice";
  strcpy(one, "shared");
  EXPECT_STREQ(other, "shared");
  EXPECT_EQ(IdOf(one), IdOf(other));
  KEL_ShmFree(one);
  EXPECT_FALSE(name.exists()) << "removed by the first that frees it";
  EXPECT_STREQ(other, "shared") << "alive until all let go";
  shmdt(other - 16);
}

TEST(ShmMalloc, IsSharedByTwoProcesses) {
  Name name;
  auto *data = static_cast<char *>(Malloc(name.c_str(), 64));
  ASSERT_NE(data, nullptr);
  const pid_t child = fork();
  if (child == 0) {
    uint8_t created = 7;
    auto *mine = static_cast<char *>(Malloc(name.c_str(), 64, &created));
    if (mine == nullptr || created != 0)
      _exit(1);
    strcpy(mine, "from the child");
    _exit(0);
  }
  ASSERT_GT(child, 0);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_STREQ(data, "from the child");
  KEL_ShmFree(data);
}

TEST(ShmMalloc, ALargerRequestThanTheSegmentFailsInRed) {
  Name name;
  void *data = Malloc(name.c_str(), 16);
  uint8_t created = 7;
  errno = 0;
  EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(Malloc(name.c_str(), 17, &created), nullptr); }),
            "\033[31mcaller.c:12 (main) shmget failed : name(" + name.text + ") key(" +
                std::to_string(KeyOf(name.text)) + ") \033[0m\n");
  EXPECT_EQ(created, 7);
  KEL_ShmFree(data);
}

TEST(ShmMalloc, OtherFailuresAreNotTriedAgain) {
  faults::shmget.Fail(-1, EACCES);
  TraceCapture trace;
  errno = 0;
  StdoutOf([&] {
    EXPECT_EQ(Malloc("x", 17), nullptr);
    EXPECT_EQ(errno, EACCES);
  });
  EXPECT_EQ(faults::shmget.Count(), 1);
  EXPECT_EQ(trace.Take(), Lines{}) << "printed, not traced";
}

TEST(ShmMalloc, AFailedAttachFailsInRed) {
  Name name;
  faults::shmat.Fail(reinterpret_cast<void *>(-1), EMFILE);
  EXPECT_EQ(StdoutOf([&] {
              errno = 0;
              EXPECT_EQ(Malloc(name.c_str(), 17), nullptr);
              EXPECT_EQ(errno, EMFILE);
            }),
            "\033[31mcaller.c:12 (main) shmat failed : name(" + name.text + ") key(" +
                std::to_string(KeyOf(name.text)) + ") \033[0m\n");
}

TEST(ShmMalloc, ANameOfKey0IsPrivateEachTime) {
  uint8_t created = 0;
  void *one = Malloc(nullptr, 16, &created);
  EXPECT_EQ(created, 1);
  void *other = Malloc("", 16, &created);
  EXPECT_EQ(created, 1);
  EXPECT_NE(IdOf(one), IdOf(other));
  KEL_ShmFree(one);
  KEL_ShmFree(other);
}

TEST(ShmMalloc, ASizeThatDoesNotFitFailsAsIfRefused) {
  faults::Record();
  const std::string printed = StdoutOf([&] {
    errno = 0;
    EXPECT_EQ(Malloc(nullptr, 0xFFFFFFFF), nullptr);
    EXPECT_EQ(errno, EINVAL);
  });
  EXPECT_EQ(faults::shmget.Count(), 0);
  EXPECT_EQ(printed,
            "\033[31mcaller.c:12 (main) shmget failed : name((null)) key(0) \033[0m\n");
}

TEST(ShmFree, OfNullDoesNothing) {
  KEL_ShmFree(nullptr);
}

TEST(ShmFree, ARefusedRemovalLeavesItAttached) {
  void *data = Malloc(nullptr, 16);
  faults::shmctl.Fail(-1, EPERM, 0, 1);
  faults::shmdt.Replace([](const void *segment) { return faults::shmdt.Real(segment); });
  EXPECT_EQ(StdoutOf([&] { KEL_ShmFree(data); }),
            "\033[31m shmctl fail (errno = Operation not permitted) \033[0m\n");
  EXPECT_EQ(faults::shmdt.Count(), 0);
  memset(data, 1, 16);
  KEL_ShmFree(data);
  EXPECT_EQ(faults::shmdt.Count(), 1);
}

TEST(ShmFree, AFailedDetachIsPrinted) {
  void *data = Malloc(nullptr, 16);
  faults::shmdt.Replace([](const void *segment) {
    faults::shmdt.Real(segment);
    errno = EINVAL;
    return -1;
  });
  EXPECT_EQ(StdoutOf([&] { KEL_ShmFree(data); }),
            "\033[31m shmdt fail (errno = Invalid argument) \033[0m\n");
}

}  // namespace
