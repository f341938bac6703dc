// Messages between processes: opening, both families, every failure.

#include "kelcore_ipc.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <semaphore.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "alloc_hooks.h"
#include "faults.h"
#include "kelcore_sema.h"
#include "kelcore_time.h"
#include "trace_capture.h"

namespace {

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelipc", "kelcore_ipc", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}
TraceLine Enter(const char *func) {
  return Line("TRACE", func, "Enter\n");
}
TraceLine Leave(const char *func) {
  return Line("TRACE", func, "Leave\n");
}

// A standard message with a text as its payload.
struct Message {
  KEL_IPC_MSG_HEADER header = {};
  char payload[112] = {};
  explicit Message(const std::string &text) {
    header.word = 0x11223344;
    header.further = 0x5566778899AABBCC;
    header.length = static_cast<int32_t>(text.size());
    memcpy(payload, text.data(), text.size());
  }
};
static_assert(offsetof(Message, payload) == 16);

// The recorded calls, without the clock that stamps traces.
std::vector<std::string> Calls() {
  std::vector<std::string> calls = faults::Log();
  std::erase(calls, "clock_gettime");
  return calls;
}

class Ipc : public testing::Test {
 protected:
  Ipc() { Remove(); }
  ~Ipc() override {
    faults::ResetAll();
    Close();
    Remove();
  }
  void Remove() {
    ::mq_unlink(name.c_str());
    ::sem_unlink(name.c_str());
    ::sem_unlink(sema_name.c_str());
  }
  // Message buffers stay with nobody when a handle is closed: freed here.
  KEL_IPC *Opened(KEL_IPC *handle) {
    if (handle != nullptr)
      handles.emplace_back(handle, KEL_IPCGetMsg(handle, nullptr));
    return handle;
  }
  KEL_IPC *Open(int32_t count = 4, int32_t size = 100, uint8_t nonblock = 0) {
    return Opened(KEL_IPCOpen(name.c_str(), count, size, nonblock));
  }
  KEL_IPC *OpenCustom(uint8_t create, const char *sema = nullptr, uint8_t nonblock = 0) {
    return Opened(KEL_IPCOpen_CustomMsg(name.c_str(), 4, 100, nonblock, sema, create));
  }
  void Close() {
    for (const auto &[handle, buffer] : handles) {
      KEL_IPCClose(handle);
      free(buffer);
    }
    handles.clear();
  }

  std::string name = "/kelcore_ipc_test_" + std::to_string(getpid());
  std::string sema_name = name + "_sema";
  std::vector<std::pair<KEL_IPC *, void *>> handles;
  TraceCapture trace{"kelipc:4"};
};

// ---- Opening ----

TEST_F(Ipc, OpeningUsesTheGivenFlagsModeAndAttributes) {
  struct Call {
    int flags;
    mode_t mode;
    long maxmsg, msgsize;
    bool operator==(const Call &) const = default;
  };
  std::vector<Call> calls;
  faults::mq_open.Replace([&](const char *, int flags, mode_t mode, mq_attr *a) {
    calls.push_back(
        {flags, mode, a != nullptr ? a->mq_maxmsg : 0, a != nullptr ? a->mq_msgsize : 0});
    errno = EACCES;
    return -1;
  });
  KEL_SEMA *sema = KEL_SemaCreate(sema_name.c_str(), 1);
  EXPECT_EQ(Open(), nullptr);
  EXPECT_EQ(Open(4, 100, 1), nullptr);
  EXPECT_EQ(OpenCustom(1), nullptr);
  EXPECT_EQ(OpenCustom(1, nullptr, 1), nullptr);
  EXPECT_EQ(OpenCustom(0), nullptr);
  EXPECT_EQ(OpenCustom(0, nullptr, 1), nullptr);
  for (uint8_t create : {uint8_t{1}, uint8_t{0}}) {
    AllocHooks hooks;
    EXPECT_EQ(KEL_IPC_MsgOpen(name.c_str(), 5, 50, create), nullptr);
    free(hooks.adds.at(0).block);  // a failure leaves the handle behind
  }
  KEL_SemaDestroy(sema);
  EXPECT_EQ(calls, (std::vector<Call>{{0x42, 0666, 4, 116},
                                      {0x842, 0666, 4, 116},
                                      {0x42, 0666, 4, 100},
                                      {0x842, 0666, 4, 100},
                                      {0x1, 0, 0, 0},
                                      {0x801, 0, 0, 0},
                                      {0x42, 0666, 5, 50},
                                      {0x2, 0, 0, 0}}));
}

TEST_F(Ipc, OpeningTracesEnterAndLeave) {
  ASSERT_NE(Open(), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Enter("KEL_IPCOpen"), Leave("KEL_IPCOpen")}));
  Close();
  EXPECT_EQ(trace.Take(), (Lines{Enter("KEL_IPCClose"), Leave("KEL_IPCClose")}));
}

TEST_F(Ipc, TheSemaphoreBearsTheQueuesNameAndLetsCountSendersIn) {
  Open(3);
  sem_t *sem = ::sem_open(name.c_str(), 0);
  ASSERT_NE(sem, SEM_FAILED);
  int value = 0;
  sem_getvalue(sem, &value);
  EXPECT_EQ(value, 3);
  ::sem_close(sem);
}

TEST_F(Ipc, TheBufferHasTheMessageSize) {
  AllocHooks hooks;
  KEL_IPC *ipc = Open();
  uint32_t size = 0;
  void *buffer = KEL_IPCGetMsg(ipc, &size);
  EXPECT_EQ(size, 116u);
  EXPECT_EQ(hooks.adds.back().block, buffer);
  EXPECT_EQ(hooks.adds.back().size, 116u);
  EXPECT_EQ(KEL_IPCGetMsg(nullptr, nullptr), nullptr);
  EXPECT_EQ(KEL_IPCPutMsg(ipc), 0);
  Remove();
  KEL_IPC *custom = OpenCustom(1);
  KEL_IPCGetMsg(custom, &size);
  EXPECT_EQ(size, 100u);
}

TEST_F(Ipc, OpeningFailuresAreTracedAndReleaseWhatTheyCan) {
  const std::string queue_failed =
      "mq_open failed err(24) name(" + name + ") count(4) size(100)\n";
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(Open(), nullptr);
  faults::ResetAll();
  faults::sem_open.Fail(SEM_FAILED, EMFILE);
  EXPECT_EQ(Open(), nullptr);
  faults::ResetAll();
  AllocHooks hooks;
  faults::mq_open.Fail(-1, EMFILE);
  errno = 0;
  EXPECT_EQ(Open(), nullptr);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_EQ(hooks.live(), 0);
  faults::ResetAll();
  mqd_t left = -1;
  faults::mq_open.Replace([&](const char *n, int f, mode_t m, mq_attr *a) {
    return left = faults::mq_open.Real(n, f, m, a);
  });
  faults::malloc.Fail(nullptr, ENOMEM, 2);
  EXPECT_EQ(Open(), nullptr);
  faults::ResetAll();
  EXPECT_EQ(::mq_close(left), 0) << "the queue was left open";
  EXPECT_EQ(hooks.live(), 0);
  EXPECT_EQ(
      trace.Messages("", "ERROR"),
      (std::vector<std::string>{"ipc malloc failed size(32)\n", "mutex init failed\n",
                                queue_failed, "ipc message buffer alloc fail. size(116)\n"}));
}

TEST_F(Ipc, WithoutMemoryThereIsNoHandle) {
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_IPCOpen_CustomMsg(name.c_str(), 4, 100, 0, nullptr, 1), nullptr);
  EXPECT_EQ(trace.Messages("kelipc", "ERROR"),
            (std::vector<std::string>{"ipc malloc failed size(32)\n"}));
  EXPECT_EQ(KEL_IPC_MsgOpen(name.c_str(), 4, 100, 1), nullptr);
  EXPECT_EQ(trace.Messages("kelipc", "ERROR"), std::vector<std::string>{});
}

TEST_F(Ipc, ACustomSemaphoreIsMadeOnlyWhenNamedAndAllowed) {
  EXPECT_EQ(OpenCustom(0, sema_name.c_str()), nullptr);
  EXPECT_EQ(trace.Messages("", "ERROR"), (std::vector<std::string>{"mutex init failed\n"}));
  ASSERT_NE(OpenCustom(1, sema_name.c_str()), nullptr);
  ASSERT_NE(OpenCustom(0, sema_name.c_str()), nullptr) << "it exists now";
}

TEST_F(Ipc, ClosingGivesTheSemaphoreATurnAndRemovesItsName) {
  KEL_IPC *ipc = KEL_IPCOpen(name.c_str(), 4, 100, 0);
  void *buffer = KEL_IPCGetMsg(ipc, nullptr);
  faults::Record();
  KEL_IPCClose(ipc);
  const std::vector<std::string> log = Calls();
  EXPECT_EQ(log, (std::vector<std::string>{"mq_close", "sem_trywait", "sem_post", "sem_close",
                                           "sem_unlink", "sem_destroy"}));
  free(buffer);
}

TEST_F(Ipc, ClosingWithoutASemaphoreMakesItsThreeCallsAllTheSame) {
  OpenCustom(1);
  TraceCapture sema_trace("kelsema:1");
  Close();
  std::vector<std::string> funcs;
  for (const TraceLine &line : sema_trace.Take())
    funcs.push_back(line.func);
  EXPECT_EQ(funcs, (std::vector<std::string>{"KEL_SemaGet", "KEL_SemaPut", "KEL_SemaDestroy"}));
  KEL_IPCClose(nullptr);
}

// ---- Sending and receiving ----

TEST_F(Ipc, AMessageArrivesUnchanged) {
  KEL_IPC *ipc = Open();
  const Message sent("payload");
  EXPECT_EQ(KEL_IPCSend(ipc, &sent, 0, 0), 0);
  EXPECT_EQ(KEL_IPCSend(ipc, &sent, 0, 1000), 0);
  for (uint32_t timeout : {0u, 1000u}) {
    Message got("");
    EXPECT_EQ(KEL_IPCReceive(ipc, &got, timeout), 0);
    EXPECT_EQ(memcmp(&got, &sent, 16 + 7), 0);
  }
}

TEST_F(Ipc, PrioritiesDecideTheOrder) {
  KEL_IPC *ipc = Open();
  const Message low("low"), high("high");
  KEL_IPCSend(ipc, &low, 1, 0);
  KEL_IPCSend(ipc, &high, 9, 0);
  Message got("");
  KEL_IPCReceive(ipc, &got, 0);
  EXPECT_STREQ(got.payload, "high");
}

TEST_F(Ipc, TwoProcessesTalk) {
  KEL_IPC *ipc = Open();
  const pid_t child = fork();
  if (child == 0) {
    // Through the queue itself: the parent's handle is not the child's.
    const mqd_t queue = ::mq_open(name.c_str(), O_WRONLY);
    const Message message("from the child");
    _exit(::mq_send(queue, reinterpret_cast<const char *>(&message), 16 + 14, 0) == 0 ? 0 : 1);
  }
  ASSERT_GT(child, 0);
  Message got("");
  int32_t result = -110;
  for (int tries = 0; tries < 20 && result == -110; ++tries)
    result = KEL_IPCReceive(ipc, &got, 4000);
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(got.payload, "from the child");
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

// The turn is the system's, and nobody gives it back for a process that died.
TEST_F(Ipc, ASenderKilledInMidSendKeepsItsTurn) {
  KEL_IPC *ipc = Open(1);
  const Message message("x");
  ASSERT_EQ(KEL_IPCSend(ipc, &message, 0, 0), 0);
  sem_t *const turns = ::sem_open(name.c_str(), 0);
  ASSERT_NE(turns, SEM_FAILED);
  const auto left = [turns] {
    int value = -1;
    sem_getvalue(turns, &value);
    return value;
  };
  const int before = left();
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    // It would wait for ever, should the test die.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
      _exit(1);
    KEL_IPCSend(ipc, &message, 0, 0);  // waits, the queue being full
    _exit(1);
  }
  ASSERT_GT(child, 0) << "a signal to -1 would go to every process";
  for (int tries = 0; tries < 60000 && left() == before; ++tries)
    usleep(1000);
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status)) << "it was still sending";
  EXPECT_EQ(left(), before - 1);
  sem_close(turns);
}

// Nor does a sender that was called off its wait: it goes on, and gives what it never had.
TEST_F(Ipc, AnInterruptedSenderGoesOnWithoutATurnAndGivesOneMore) {
  KEL_IPC *ipc = Open(1);
  sem_t *const turns = ::sem_open(name.c_str(), 0);
  ASSERT_NE(turns, SEM_FAILED);
  ASSERT_EQ(::sem_trywait(turns), 0);
  const Message message("x");
  faults::sem_wait.Fail(-1, EINTR);
  EXPECT_EQ(KEL_IPCSend(ipc, &message, 0, 0), 0);
  ::sem_post(turns);
  int units = 0;
  sem_getvalue(turns, &units);
  EXPECT_EQ(units, 2);
  sem_close(turns);
}

TEST_F(Ipc, CustomMessagesAreRawAndLongestFirst) {
  KEL_IPC *server = OpenCustom(1);
  KEL_IPC *client = OpenCustom(0);
  EXPECT_EQ(KEL_IPCSend_CustomMsg(client, "four", 4, 0), 0);
  EXPECT_EQ(KEL_IPCSend_CustomMsg(client, "longer", 6, 100), 0);
  char got[101] = {};
  EXPECT_EQ(KEL_IPCReceive(server, got, 0), 0);
  EXPECT_STREQ(got, "longer");
  EXPECT_EQ(KEL_IPCReceive(client, got, 0), -1) << "a client can only send";
}

TEST_F(Ipc, TheSenderTakesATurnAndGivesItBack) {
  KEL_IPC *ipc = Open();
  const Message message("x");
  faults::Record();
  KEL_IPCSend(ipc, &message, 0, 0);
  EXPECT_EQ(Calls(), (std::vector<std::string>{"sem_wait", "mq_send", "sem_post"}));
  faults::ResetAll();
  Message too_long("");
  too_long.header.length = 117;
  faults::Record();
  EXPECT_EQ(KEL_IPCSend(ipc, &too_long, 0, 0), -22);
  EXPECT_EQ(Calls(), (std::vector<std::string>{"sem_wait", "sem_post"}));
}

TEST_F(Ipc, ACustomSenderTakesATurnAtItsSemaphore) {
  KEL_IPC *ipc = OpenCustom(1, sema_name.c_str());
  faults::Record();
  EXPECT_EQ(KEL_IPCSend_CustomMsg(ipc, "text", 4, 0), 0);
  EXPECT_EQ(Calls(), (std::vector<std::string>{"sem_wait", "mq_send", "sem_post"}));
}

TEST_F(Ipc, ACustomHandleWithoutSemaphoreTakesNoTurn) {
  KEL_IPC *ipc = OpenCustom(1);
  faults::Record();
  KEL_IPCSend_CustomMsg(ipc, "x", 1, 0);
  EXPECT_EQ(Calls(), (std::vector<std::string>{"mq_send"}));
}

TEST_F(Ipc, NullArgumentsAreRefusedWithoutATurn) {
  KEL_IPC *ipc = Open();
  const Message message("x");
  trace.Take();
  faults::Record();
  EXPECT_EQ(KEL_IPCSend(nullptr, &message, 0, 0), -22);
  EXPECT_EQ(KEL_IPCSend_CustomMsg(ipc, nullptr, 1, 0), -22);
  EXPECT_EQ(KEL_IPCReceive(nullptr, &ipc, 0), -22);
  EXPECT_EQ(KEL_IPCReceive(ipc, nullptr, 0), -22);
  EXPECT_EQ(Calls(), std::vector<std::string>{});
  const void *data = &message, *handle = ipc;
  EXPECT_EQ(
      trace.Take(),
      (Lines{Enter("KEL_IPCSend"),
             Error("KEL_IPCSend", Format("invalid ipc handle((nil)) or data(%p)\n", data)),
             Enter("KEL_IPCSend_CustomMsg"),
             Error("KEL_IPCSend_CustomMsg",
                   Format("invalid ipc handle(%p) or data((nil))\n", handle)),
             Error("KEL_IPCReceive", "invalid ipc handle or data\n"),
             Error("KEL_IPCReceive", "invalid ipc handle or data\n")}));
}

TEST_F(Ipc, SizesAreCheckedAgainstTheMessageSize) {
  KEL_IPC *ipc = Open();
  struct {
    KEL_IPC_MSG_HEADER header;
    char payload[200];
  } message = {};
  trace.Take();
  message.header.length = -1;
  EXPECT_EQ(KEL_IPCSend(ipc, &message, 0, 0), -22);
  message.header.length = 117;
  EXPECT_EQ(KEL_IPCSend(ipc, &message, 0, 0), -22);
  EXPECT_EQ(trace.Messages("", "ERROR"),
            (std::vector<std::string>{"data size is too big max(116)\n",
                                      "data size is too big max(116)\n"}));
  // Up to 16 bytes more than the payload pass here and fail in the kernel.
  message.header.length = 116;
  EXPECT_EQ(KEL_IPCSend(ipc, &message, 0, 1000), -22);
  EXPECT_EQ(trace.Messages("", "ERROR"),
            (std::vector<std::string>{"mq_send error. max(4)cur(0)\n",
                                      "mq_send(1000) message size error ret(-1) err(90)\n"}));
  Remove();
  KEL_IPC *custom = OpenCustom(1);
  EXPECT_EQ(KEL_IPCSend_CustomMsg(custom, &message, 101, 0), -22);
  EXPECT_EQ(KEL_IPCSend_CustomMsg(custom, &message, 100, 0), 0);
}

TEST_F(Ipc, AFullQueueRefusesOrExpires) {
  KEL_IPC *ipc = Open(1, 100, 1);
  const Message message("x");
  EXPECT_EQ(KEL_IPCSend(ipc, &message, 0, 0), 0);
  trace.Take();
  EXPECT_EQ(KEL_IPCSend(ipc, &message, 0, 0), -22);
  EXPECT_EQ(trace.Messages("", "ERROR"),
            (std::vector<std::string>{"mq_send error. max(1)cur(1)\n",
                                      "mq_send(0) queue full error ret(-1) err(11)\n"}));
  Remove();
  KEL_IPC *blocking = Open(1);
  KEL_IPCSend(blocking, &message, 0, 0);
  trace.Take();
  errno = 0;
  EXPECT_EQ(KEL_IPCSend(blocking, &message, 0, 20), -22);
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(trace.Messages("", "ERROR"),
            (std::vector<std::string>{"mq_send error. max(1)cur(1)\n",
                                      "mq_send(20) timeout error ret(-1) err(110)\n"}));
}

TEST_F(Ipc, AnInterruptedSendIsRepeatedWithANewDeadline) {
  KEL_IPC *ipc = Open();
  const Message message("x");
  time_t now = 100;
  faults::clock_gettime.Replace([&](clockid_t clock, timespec *time) {
    *time = {clock == CLOCK_REALTIME ? now++ : 0, 0};
    return 0;
  });
  std::vector<time_t> deadlines;
  faults::mq_timedsend.Replace([&](mqd_t, const char *, size_t, unsigned, const timespec *t) {
    deadlines.push_back(t->tv_sec);
    errno = EINTR;
    return deadlines.size() < 3 ? -1 : 0;
  });
  TraceCapture only("kelipc:1");
  EXPECT_EQ(KEL_IPCSend(ipc, &message, 0, 2000), 0);
  faults::ResetAll();
  EXPECT_EQ(deadlines, (std::vector<time_t>{102, 103, 104}));
  EXPECT_EQ(only.Messages()[1], "mq_send(2000) interrupted. ret(-1) err(4)\n");
}

TEST_F(Ipc, OtherSendFailuresAreTracedWithTheirErrno) {
  KEL_IPC *ipc = Open();
  const Message message("x");
  faults::mq_send.Fail(-1, EBADF);
  trace.Take();
  EXPECT_EQ(KEL_IPCSend(ipc, &message, 0, 0), -22);
  EXPECT_EQ(trace.Messages("", "ERROR")[1], "mq_send(0) error ret(-1) err(9)\n");
}

TEST_F(Ipc, DeadlinesWrapAbove4294Milliseconds) {
  KEL_IPC *ipc = Open();
  const Message message("x");
  faults::clock_gettime.Replace([](clockid_t clock, timespec *time) {
    *time = {clock == CLOCK_REALTIME ? 100 : 0, 999'999'999};
    return 0;
  });
  timespec deadline{};
  faults::mq_timedsend.Replace([&](mqd_t, const char *, size_t, unsigned, const timespec *t) {
    deadline = *t;
    return 0;
  });
  KEL_IPCSend(ipc, &message, 0, 4294);
  EXPECT_EQ(deadline.tv_sec, 105);
  EXPECT_EQ(deadline.tv_nsec, 293'999'999);
  KEL_IPCSend(ipc, &message, 0, 5000);  // 5,000,000,000 less 4,294,967,296
  EXPECT_EQ(deadline.tv_sec, 101);
  EXPECT_EQ(deadline.tv_nsec, 705'032'703);
  faults::mq_timedreceive.Replace(
      [&](mqd_t, char *, size_t, unsigned *priority, const timespec *t) -> ssize_t {
        EXPECT_EQ(priority, nullptr);
        deadline = *t;
        return 0;
      });
  KEL_IPCReceive(ipc, &deadline, 5000);
  EXPECT_EQ(deadline.tv_sec, 101);
}

TEST_F(Ipc, AReceiveThatExpiresIsNotTraced) {
  KEL_IPC *ipc = Open();
  char buffer[116];
  trace.Take();
  const uint64_t before = KEL_GetSystemTick();
  EXPECT_EQ(KEL_IPCReceive(ipc, buffer, 30), -110);
  EXPECT_GE(KEL_GetSystemTick() - before, 28u);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(Ipc, OtherReceiveFailuresAreTraced) {
  KEL_IPC *ipc = Open(4, 100, 1);
  char buffer[116];
  trace.Take();
  EXPECT_EQ(KEL_IPCReceive(ipc, buffer, 0), -1) << "empty and not blocking";
  faults::mq_receive.Fail(-1, EMSGSIZE);
  EXPECT_EQ(KEL_IPCReceive(ipc, buffer, 0), -1);
  faults::ResetAll();
  int calls = 0;
  faults::mq_timedreceive.Replace([&](mqd_t, char *, size_t, unsigned *, const timespec *) {
    errno = EINTR;
    return static_cast<ssize_t>(++calls < 3 ? -1 : 5);
  });
  EXPECT_EQ(KEL_IPCReceive(ipc, buffer, 7), 0);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_IPCReceive", "mq receive errno(11) timeout(0)\n"),
                   Error("KEL_IPCReceive", "mq receive errno(90) msg size (116:116)\n"),
                   Error("KEL_IPCReceive", "mq receive errno(90) timeout(0)\n"),
                   Error("KEL_IPCReceive", "mq receive interrupted. retry!\n"),
                   Error("KEL_IPCReceive", "mq receive interrupted. retry!\n")}));
}

// ---- The simple family ----

TEST_F(Ipc, SimpleQueuesMoveRawBlocks) {
  KEL_IPC_MSG *queue = KEL_IPC_MsgOpen(name.c_str(), 4, 50, 1);
  ASSERT_NE(queue, nullptr);
  EXPECT_EQ(KEL_IPC_MsgGetMaxSize(queue), 50u);
  EXPECT_EQ(KEL_IPC_MsgGetMaxSize(nullptr), 0u);
  unsigned priority = 99;
  faults::mq_send.Replace([&](mqd_t q, const char *data, size_t length, unsigned p) {
    priority = p;
    return faults::mq_send.Real(q, data, length, p);
  });
  EXPECT_EQ(KEL_IPC_MsgSend(queue, "hello", 5), 0);
  EXPECT_EQ(priority, 0u);
  EXPECT_EQ(KEL_IPC_MsgSend(queue, "again", 5), 0);
  char got[50] = {};
  EXPECT_EQ(KEL_IPC_MsgRecv(queue, got, 50, 0), 5);
  EXPECT_STREQ(got, "hello");
  EXPECT_EQ(KEL_IPC_MsgRecv(queue, got, 50, 1000), 5);
  EXPECT_EQ(trace.Take(), Lines{});
  KEL_IPC_MsgClose(queue);
  KEL_IPC_MsgClose(nullptr);
}

TEST_F(Ipc, SimpleOpeningFailureKeepsTheHandle) {
  AllocHooks hooks;
  EXPECT_EQ(KEL_IPC_MsgOpen(name.c_str(), 4, 50, 0), nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_IPC_MsgOpen", "mq_open(" + name +
                                                ", 4, 50) failed (err: 2, No such file or "
                                                "directory)\n")}));
  ASSERT_EQ(hooks.live(), 1);
  free(hooks.adds[0].block);
}

TEST_F(Ipc, SimpleFailuresAreTraced) {
  KEL_IPC_MSG *queue = KEL_IPC_MsgOpen(name.c_str(), 4, 50, 1);
  int32_t descriptor;
  memcpy(&descriptor, queue, sizeof descriptor);
  char buffer[60] = {};
  const void *shown = buffer;
  EXPECT_EQ(KEL_IPC_MsgSend(queue, buffer, 51), -1);
  EXPECT_EQ(KEL_IPC_MsgRecv(queue, buffer, 51, 0), 0);
  faults::mq_send.Fail(-1, EBADF);
  EXPECT_EQ(KEL_IPC_MsgSend(queue, buffer, 5), -1);
  EXPECT_EQ(KEL_IPC_MsgRecv(queue, buffer, 50, 10), 0) << "nothing came";
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_IPC_MsgSend", "size(51) is over than max(50)\n"),
                   Error("KEL_IPC_MsgRecv", "size(51) is over than max(50)\n"),
                   Error("KEL_IPC_MsgSend",
                         Format("mq_send(%d, %p, 5) failed (err: 9, Bad file descriptor)\n",
                                descriptor, shown)),
                   Error("KEL_IPC_MsgRecv",
                         Format("mq_recv(%d, %p, 50) failed (err: 110, Connection timed out)\n",
                                descriptor, shown))}));
  const int32_t none = -1;
  memcpy(static_cast<void *>(queue), &none, sizeof none);
  EXPECT_EQ(KEL_IPC_MsgSend(queue, buffer, 5), -1);
  EXPECT_EQ(KEL_IPC_MsgRecv(queue, buffer, 5, 0), -1);
  EXPECT_EQ(KEL_IPC_MsgSend(nullptr, buffer, 5), -1);
  const void *handle = queue;
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{Format("No queue handle (%p, -1)\n", handle),
                                      Format("No queue handle (%p, -1)\n", handle),
                                      "No queue handle ((nil), -1)\n"}));
  memcpy(static_cast<void *>(queue), &descriptor, sizeof descriptor);
  KEL_IPC_MsgClose(queue);
}

TEST_F(Ipc, SimpleClosingLeavesDescriptor0Open) {
  AllocHooks hooks;
  KEL_IPC_MSG *queue = KEL_IPC_MsgOpen(name.c_str(), 4, 50, 1);
  int32_t descriptor;
  memcpy(&descriptor, queue, sizeof descriptor);
  const int32_t zero = 0;
  memcpy(static_cast<void *>(queue), &zero, sizeof zero);
  faults::mq_close.Replace([](mqd_t q) { return faults::mq_close.Real(q); });
  KEL_IPC_MsgClose(queue);
  EXPECT_EQ(faults::mq_close.Count(), 0);
  EXPECT_EQ(hooks.live(), 0);
  ::mq_close(descriptor);
}

}  // namespace
