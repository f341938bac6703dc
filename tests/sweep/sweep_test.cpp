// Makes the first, second, third ... call of every kind fail, once and from then
// on, in every operation: it must come back with what it says, leave nothing
// behind, and work the next time.

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <map>

#include "alloc_hooks.h"
#include "calls.h"
#include "faults.h"
#include "operations.h"
#include "trace_capture.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#else
static void __lsan_disable() {}
static void __lsan_enable() {}
#endif

namespace {

int injected = 0;

class Cleaning : public testing::Environment {
  void TearDown() override {
    RemoveLeftovers();
    testing::Test::RecordProperty("injected", injected);
    printf("%d faults injected\n", injected);
  }
};
const auto *const cleaning = testing::AddGlobalTestEnvironment(new Cleaning);

class Sweep : public testing::TestWithParam<size_t> {
 protected:
  const Operation &operation = Operations()[GetParam()];

  // How often an undisturbed run makes each call.
  std::map<std::string, int> CallsOfOneRun() {
    faults::Record();
    EXPECT_TRUE(operation.run());
    std::map<std::string, int> calls;
    for (const std::string &call : faults::Log())
      ++calls[call];
    faults::ResetAll();
    return calls;
  }

  bool Keeps(const std::string &func) {
    return std::find(operation.keeps.begin(), operation.keeps.end(), func) !=
           operation.keeps.end();
  }

  // Blocks that are announced and never released.
  void ExpectNothingLeft(const AllocHooks &hooks) {
    std::map<void *, int> live;
    for (const auto &add : hooks.adds)
      ++live[add.block];
    for (const auto &update : hooks.updates)
      if (update.new_block != nullptr) {
        --live[update.old_block];
        ++live[update.new_block];
      }
    for (const auto &remove : hooks.removes)
      --live[remove.block];
    for (const auto &add : hooks.adds) {
      if (live[add.block] <= 0)
        continue;
      EXPECT_TRUE(Keeps(add.func)) << "left by " << add.func << " line " << add.line;
    }
  }

  void Disturb(const FailingCall &call, int error, int skip, int times, bool told) {
    SCOPED_TRACE(call.name + " fails after " + std::to_string(skip) +
                 (times == 1 ? " once" : " for good") + " with " + std::to_string(error));
    TraceCapture trace;
    AllocHooks hooks;
    ++injected;
    call.fail(error, skip, times);
    const bool good = operation.run();
    faults::ResetAll();
    if (told && !good) {
      EXPECT_NE(trace.Messages(), std::vector<std::string>{});
    }
    ExpectNothingLeft(hooks);
    EXPECT_TRUE(operation.run()) << "afterwards";
  }
};

INSTANTIATE_TEST_SUITE_P(All, Sweep, testing::Range(size_t{0}, Operations().size()),
                         [](const auto &index) { return Operations()[index.param].name; });

TEST_P(Sweep, SurvivesEveryFailure) {
  __lsan_disable();  // leaks are looked for by the announcements
  const auto calls = CallsOfOneRun();
  for (const FailingCall &call : FailingCalls()) {
    const auto made = calls.find(call.name);
    if (made == calls.end() || std::find(operation.spared.begin(), operation.spared.end(),
                                         call.name) != operation.spared.end())
      continue;
    // Loops make the same call over and over.
    const int most = std::min(made->second, 40);
    for (const int error : call.errors)
      for (int skip = 0; skip < most && !HasFailure(); ++skip) {
        Disturb(call, error, skip, 1, call.allocates && !operation.silent);
        // An interrupted wait begins again.
        if (error != EINTR)
          Disturb(call, error, skip, faults::kForever, call.allocates && !operation.silent);
      }
  }
  __lsan_enable();
}

}  // namespace
