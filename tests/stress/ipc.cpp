// Message queues between processes, some of which are killed in the middle of a call:
// the queue stays usable, no message is torn or comes twice, and none is lost but the
// one that a killed receiver has just taken, which is known by its place in the order.
//
// The queue's name leaves the system as soon as all have opened it: nothing stays
// behind, whoever is killed.

#include <fcntl.h>
#include <kelcore_ipc.h>
#include <kelcore_mem.h>
#include <mqueue.h>
#include <semaphore.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "stress.h"

namespace {

constexpr uint32_t kSenders = 3;
constexpr uint32_t kLives = 16;  // of one sender, in one round
constexpr uint32_t kManyKills = 40;
constexpr uint32_t kPayload = 200;
constexpr uint32_t kNumbers = 1 << 15;  // of messages in one life, the first being 1
constexpr uint32_t kPatienceMs = 50;

// Seen by all processes.
struct Ledger {
  std::atomic<bool> stop_sending, stop_receiving;
  struct Life {
    std::atomic<uint64_t> begun, done;  // by the sender: before and after each send
    // By the receiver: how often each came, and the newest of each order of its own.
    std::atomic<uint8_t> came[kNumbers];
    std::atomic<uint32_t> newest[kPayload + 1];
  } lives[kSenders][kLives];
  std::atomic<uint64_t> received, torn, disorder, failed;
  // By the receiver: from before it asks until what came is noted.
  std::atomic<bool> receiving;
};

class SharedLedger {
 public:
  SharedLedger() {
    void *memory = mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED)
      ledger_ = new (memory) Ledger{};
  }
  ~SharedLedger() { munmap(ledger_, sizeof *ledger_); }
  SharedLedger(const SharedLedger &) = delete;
  SharedLedger &operator=(const SharedLedger &) = delete;
  Ledger *operator->() const { return ledger_; }

 private:
  Ledger *ledger_ = nullptr;
};

// What both families carry.
struct Message {
  KEL_IPC_MSG_HEADER header;  // word: the sender and its life; further: a number
  uint8_t payload[kPayload];
};

uint64_t KeyOf(const KEL_IPC_MSG_HEADER &header) {
  return uint64_t{header.word} << 40 | header.further;
}

// Of the payload: each message has a length of its own.
uint32_t LengthOf(const KEL_IPC_MSG_HEADER &header) {
  return static_cast<uint32_t>(stress::Mix(KeyOf(header)) % (kPayload + 1));
}

// One of the families over a queue.
class Channel {
 public:
  virtual ~Channel() = default;
  virtual bool ok() const = 0;
  virtual bool Send(const Message &message, uint32_t timeout) = 0;
  // False when nothing came in time.
  virtual bool Receive(Message &message) = 0;
};

enum class Role { kReceiver, kSender };

uint32_t SizeOf(const Message &message) {
  return static_cast<uint32_t>(sizeof message.header) +
         static_cast<uint32_t>(message.header.length);
}

// What standard and custom messages share.
class OfFirstFamily : public Channel {
 public:
  explicit OfFirstFamily(KEL_IPC *ipc) : ipc_(ipc) {}
  ~OfFirstFamily() override {
    void *message = KEL_IPCGetMsg(ipc_, nullptr);
    KEL_IPCClose(ipc_);
    KEL_Free(message, 0);  // closing leaves it to its users
  }
  OfFirstFamily(const OfFirstFamily &) = delete;
  OfFirstFamily &operator=(const OfFirstFamily &) = delete;
  bool ok() const override { return ipc_ != nullptr; }
  bool Receive(Message &message) override {
    return KEL_IPCReceive(ipc_, &message, kPatienceMs) == 0;
  }

 protected:
  KEL_IPC *const ipc_;
};

class Standard : public OfFirstFamily {
 public:
  static constexpr bool kTakesTurns = true, kLongestFirst = false;
  Standard(const std::string &name, uint32_t count, Role)
      : OfFirstFamily(KEL_IPCOpen(name.c_str(), static_cast<int32_t>(count), kPayload, 0)) {}
  bool Send(const Message &message, uint32_t timeout) override {
    return KEL_IPCSend(ipc_, &message, 0, timeout) == 0;
  }
};

// With a semaphore for the senders' turns, or without. Who only sends joins what others
// have made.
template <bool turns>
class Custom : public OfFirstFamily {
 public:
  static constexpr bool kTakesTurns = turns, kLongestFirst = true;
  Custom(const std::string &name, uint32_t count, Role role)
      : OfFirstFamily(KEL_IPCOpen_CustomMsg(name.c_str(), static_cast<int32_t>(count),
                                            sizeof(Message), 0, turns ? name.c_str() : nullptr,
                                            role == Role::kReceiver ? 1 : 0)) {}
  bool Send(const Message &message, uint32_t timeout) override {
    return KEL_IPCSend_CustomMsg(ipc_, &message, SizeOf(message), timeout) == 0;
  }
};

class Raw : public Channel {
 public:
  static constexpr bool kTakesTurns = false, kLongestFirst = false;
  Raw(const std::string &name, uint32_t count, Role)
      : queue_(KEL_IPC_MsgOpen(name.c_str(), count, sizeof(Message), 1)) {}
  ~Raw() override { KEL_IPC_MsgClose(queue_); }
  Raw(const Raw &) = delete;
  Raw &operator=(const Raw &) = delete;
  bool ok() const override { return queue_ != nullptr; }
  bool Send(const Message &message, uint32_t) override {
    return KEL_IPC_MsgSend(queue_, &message, SizeOf(message)) == 0;
  }
  bool Receive(Message &message) override {
    return KEL_IPC_MsgRecv(queue_, &message, sizeof message, kPatienceMs) > 0;
  }

 private:
  KEL_IPC_MSG *queue_;
};

template <typename Family>
class Round {
 public:
  // A sender that is killed can take its turn to send with it. While fewer are killed
  // than there are turns, one for each message, the others go on.
  explicit Round(stress::Random &random)
      : random_(random),
        count_(random.Between(2, 8)),
        kills_left_(random.Below(Family::kTakesTurns ? count_ : kManyKills)),
        name_("/kelcore-stress-" + std::to_string(getpid())),
        channel_(name_, count_, Role::kReceiver) {}

  void Run() {
    stress::Expect(channel_.ok(), "no queue");
    if (!channel_.ok())
      return;
    StartAll();
    const timespec pause = {0, static_cast<long>(random_.Between(100'000, 5'000'000))};
    uint64_t seen = 0;
    const uint64_t enough = random_.Between(100, 20000);
    // When nothing moves any more the watchdog sees that nobody asks for the time.
    for (bool going = true; going && seen < enough;) {
      nanosleep(&pause, nullptr);
      if (kills_left_ > 0 && random_.OneIn(2))
        KillOne();
      const uint64_t now = ledger_->received;
      if (now != seen)
        going = stress::Going();
      seen = now;
    }
    ledger_->stop_sending = true;
    for (const pid_t sender : senders_)
      Reap(sender);
    ledger_->stop_receiving = true;
    Reap(receiver_);
    Drain();
    Check();
  }

 private:
  // The first processes open the queue by its name, the ones that follow them inherit
  // their parent's handle.
  void StartAll() {
    int opened[2];
    stress::Expect(pipe2(opened, O_CLOEXEC) == 0, "no pipe");
    for (uint32_t i = 0; i < kSenders; ++i)
      senders_[i] = Start([&] {
        Family own(name_, count_, Role::kSender);
        Opened(opened[1], own);
        SendAll(i, own);
      });
    receiver_ = Start([&] {
      Family own(name_, count_, Role::kReceiver);
      Opened(opened[1], own);
      ReceiveAll(own);
    });
    close(opened[1]);
    for (uint32_t i = 0; i < kSenders + 1; ++i) {
      char good = 0;
      stress::Expect(read(opened[0], &good, 1) == 1 && good == 1, "a process has no queue");
    }
    close(opened[0]);
    mq_unlink(name_.c_str());
    sem_unlink(name_.c_str());
  }
  static void Opened(int fd, const Channel &channel) {
    const char good = channel.ok() ? 1 : 0;
    if (write(fd, &good, 1) != 1 || !channel.ok())
      _exit(1);
  }

  template <typename Body>
  pid_t Start(Body body) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child != 0) {
      stress::Expect(child > 0, "no process");
      return child;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    signal(SIGINT, SIG_IGN);  // the parent says when to stop
    if (getppid() == parent)
      body();
    _exit(0);
  }
  void Reap(pid_t child) {
    int status = 0;
    stress::Expect(waitpid(child, &status, 0) == child, "a process is not waited for");
    stress::Expect(WIFSIGNALED(status) ? WTERMSIG(status) == SIGKILL : status == 0,
                   "a process ends with %d", status);
  }
  void Kill(pid_t child) {
    if (child > 0)  // -1 would be everybody
      kill(child, SIGKILL);
    Reap(child);
  }
  void KillOne() {
    --kills_left_;
    const uint32_t victim = random_.Below(kSenders + 1);
    if (victim == kSenders) {
      Kill(receiver_);
      ++receiver_kills_;
      NoteKill();
      receiver_ = Start([this] { ReceiveAll(channel_); });
      return;
    }
    if (life_[victim] + 1 == kLives)
      return;
    Kill(senders_[victim]);
    ++sender_kills_;
    const typename Ledger::Life &life = ledger_->lives[victim][life_[victim]];
    const uint64_t begun = life.begun, done = life.done;
    stress::Expect(begun == done || begun == done + 1, "a sender was in two sends");
    kills_in_send_ += begun - done;
    ++life_[victim];
    senders_[victim] = Start([this, victim] { SendAll(victim, channel_); });
  }
  // A receiver that died with a message in hand took the next one of its sender, or of
  // those of that length. No other one writes what is copied here.
  void NoteKill() {
    if (!ledger_->receiving)
      return;
    Newest at_death;
    for (const auto &sender : ledger_->lives)
      for (const auto &life : sender)
        at_death.insert(at_death.end(), std::begin(life.newest), std::end(life.newest));
    deaths_.push_back(std::move(at_death));
    ledger_->receiving = false;  // until the next one asks
  }

  // ---- In the other processes ----

  void SendAll(uint32_t self, Channel &channel) {
    typename Ledger::Life &life = ledger_->lives[self][life_[self]];
    Message message{};
    message.header.word = self << 16 | life_[self];
    for (uint64_t number = 1; number < kNumbers && !ledger_->stop_sending; ++number) {
      message.header.further = number;
      const uint64_t key = KeyOf(message.header);
      const uint32_t length = LengthOf(message.header);
      message.header.length = static_cast<int32_t>(length);
      stress::Fill(message.payload, length, key);
      life.begun = number;
      // Without a limit, or again until there is room.
      while (!channel.Send(message, number % 2 != 0 ? 0 : 1)) {
        if (number % 2 != 0)
          ++ledger_->failed;
        if (ledger_->stop_sending) {
          life.begun = number - 1;
          return;
        }
      }
      life.done = number;
    }
  }
  void ReceiveAll(Channel &channel) {
    Message message{};
    while (!ledger_->stop_receiving) {
      ledger_->receiving = true;
      if (channel.Receive(message))
        Account(message);
      ledger_->receiving = false;
    }
  }
  void Account(const Message &message) {
    const uint32_t sender = message.header.word >> 16, life = message.header.word & 0xFFFF;
    const uint64_t number = message.header.further;
    if (sender >= kSenders || life >= kLives || number >= kNumbers ||
        static_cast<uint32_t>(message.header.length) != LengthOf(message.header) ||
        !stress::Holds(message.payload, static_cast<uint32_t>(message.header.length),
                       KeyOf(message.header))) {
      ++ledger_->torn;
      return;
    }
    typename Ledger::Life &one = ledger_->lives[sender][life];
    // The longest come first: only those of one length keep their order.
    const uint32_t order = OrderOf(message.header);
    if (one.came[number].fetch_add(1) != 0 || number <= one.newest[order])
      ++ledger_->disorder;
    one.newest[order] = static_cast<uint32_t>(number);
    ++ledger_->received;
  }

  static uint32_t OrderOf(const KEL_IPC_MSG_HEADER &header) {
    return Family::kLongestFirst ? LengthOf(header) : 0;
  }

  // ---- In the end ----

  // What is left when all others have gone.
  void Drain() {
    Message message;
    for (int32_t last = kPayload; channel_.Receive(message); last = message.header.length) {
      Account(message);
      stress::Expect(!Family::kLongestFirst || message.header.length <= last,
                     "a longer message comes later");
    }
  }

  void Check() {
    uint64_t missing = 0;
    for (uint32_t sender = 0; sender < kSenders; ++sender)
      for (uint32_t life = 0; life < kLives; ++life)
        missing += CheckLife(sender, life);
    stress::Expect(missing <= deaths_.size(),
                   "%llu messages are lost, with %zu receivers killed in a receive",
                   static_cast<unsigned long long>(missing), deaths_.size());
    stress::Expect(ledger_->torn == 0, "%llu messages are torn",
                   static_cast<unsigned long long>(ledger_->torn));
    stress::Expect(ledger_->disorder == 0, "%llu messages come twice, or late",
                   static_cast<unsigned long long>(ledger_->disorder));
    stress::Expect(ledger_->failed == 0, "%llu sends without a limit fail",
                   static_cast<unsigned long long>(ledger_->failed));
    stress::Expect(mq_open(name_.c_str(), O_RDONLY) == -1, "the queue is left behind");
    stress::Expect(sem_open(name_.c_str(), 0) == SEM_FAILED, "the semaphore is left behind");
    stress::Count("received", ledger_->received);
    stress::Count("lost-with-receivers", missing);
    stress::Count("killed-senders", sender_kills_);
    stress::Count("killed-in-send", kills_in_send_);
    stress::Count("killed-receivers", receiver_kills_);
    stress::Count("killed-in-receive", deaths_.size());
  }
  // How many messages of one life are missing.
  uint64_t CheckLife(uint32_t self, uint32_t which) {
    const typename Ledger::Life &life = ledger_->lives[self][which];
    const uint64_t begun = life.begun, done = life.done;
    uint64_t missing = 0;
    uint32_t newest[kPayload + 1]{};  // that came, among those before
    for (uint64_t number = 1; number <= done; ++number) {
      KEL_IPC_MSG_HEADER header{};
      header.word = self << 16 | which;
      header.further = number;
      const uint32_t order = OrderOf(header);
      if (life.came[number] != 0) {
        newest[order] = static_cast<uint32_t>(number);
        continue;
      }
      ++missing;
      const size_t at = (size_t{self} * kLives + which) * (kPayload + 1) + order;
      stress::Expect(
          std::any_of(deaths_.begin(), deaths_.end(),
                      [&](const Newest &death) { return death[at] == newest[order]; }),
          "message %llu is lost, and no receiver was killed before the next one",
          static_cast<unsigned long long>(number));
    }
    // A sender that is killed may have sent what it had begun, and nothing else.
    for (uint64_t number = begun + 1; number < kNumbers; ++number)
      stress::Expect(life.came[number] == 0, "a message came that nobody sent");
    return missing;
  }

  stress::Random &random_;
  const uint32_t count_;
  uint32_t kills_left_;
  const std::string name_;
  Family channel_;
  SharedLedger ledger_;
  pid_t senders_[kSenders] = {};
  pid_t receiver_ = 0;
  uint32_t life_[kSenders] = {};
  uint64_t sender_kills_ = 0, kills_in_send_ = 0, receiver_kills_ = 0;
  using Newest = std::vector<uint32_t>;  // of all lives
  std::vector<Newest> deaths_;           // of receivers, in a receive
};

template <typename Family>
void Rounds() {
  stress::Random random;
  do {
    Round<Family>(random).Run();
    stress::Count("rounds", 1);
  } while (stress::Going());
}

void UnlinkAll() {
  const std::string name = "/kelcore-stress-" + std::to_string(getpid());
  mq_unlink(name.c_str());
  sem_unlink(name.c_str());
}

}  // namespace

int main() {
  stress::SetCleanUp(UnlinkAll);
  return stress::Main("ipc", "none torn, none twice, at most one lost per killed receiver",
                      {{"standard", Rounds<Standard>},
                       {"custom", Rounds<Custom<false>>},
                       {"custom-turns", Rounds<Custom<true>>},
                       {"raw", Rounds<Raw>}});
}
