// Makes the first, second, third ... call of every kind fail, once and from then
// on, in every operation. Results, errno, messages and what is left behind must be
// those of expected.txt; only what is on the list of keeps may be left, and nothing
// released twice; and the operation must work the next time.

#include <gtest/gtest.h>
#include <malloc.h>
#include <string.h>

#include <algorithm>
#include <span>

#include "calls.h"
#include "expected.h"
#include "faults.h"
#include "keeps.h"
#include "names.h"
#include "operations.h"
#include "recorder.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#else
static void __lsan_disable() {}
static void __lsan_enable() {}
#endif

namespace {

// Loops make the same call over and over.
constexpr int kMostPerCall = 40;

int injected = 0;

std::string ErrorName(int error) {
  const char *name = strerrorname_np(error);
  return name != nullptr ? name : std::to_string(error);
}

std::string Described(const StepResult &step) {
  return step.function + "=" + step.result +
         (step.error != 0 ? " " + ErrorName(step.error) : "");
}

// Equal neighbours as one.
void AddLines(std::string &text, std::span<const std::string> lines) {
  for (size_t at = 0; at < lines.size();) {
    size_t end = at + 1;
    while (end < lines.size() && lines[end] == lines[at])
      ++end;
    text += "\n    " + lines[at];
    if (end - at > 1)
      text += " (" + std::to_string(end - at) + " times)";
    at = end;
  }
}

void AddLeft(std::string &text, const Left &left) {
  for (const auto &[thing, count] : left)
    text += "\n    left: " + std::to_string(count) + " " + thing.second + " of " + thing.first;
}

void AddUnmatched(std::string &text, const Left &unmatched) {
  for (const auto &[thing, count] : unmatched)
    text += "\n    released without being there: " + std::to_string(count) + " " +
            thing.second + " by " + thing.first;
}

// What is between the common begin and the common end of both.
template <typename T>
std::pair<std::span<const T>, std::span<const T>> Differing(const std::vector<T> &one,
                                                            const std::vector<T> &other) {
  const size_t shorter = std::min(one.size(), other.size());
  size_t begin = 0, end = 0;
  while (begin < shorter && one[begin] == other[begin])
    ++begin;
  while (end < shorter - begin && one[one.size() - 1 - end] == other[other.size() - 1 - end])
    ++end;
  return {std::span(one).subspan(begin, one.size() - begin - end),
          std::span(other).subspan(begin, other.size() - begin - end)};
}

// What of `outcome` differs from an undisturbed run.
std::string Described(const Outcome &outcome, const Outcome &undisturbed) {
  std::string text;
  const auto [steps, usual_steps] = Differing(outcome.steps, undisturbed.steps);
  for (size_t i = 0; i < steps.size(); ++i)
    if (steps.size() != usual_steps.size() || steps[i] != usual_steps[i])
      text += " " + Described(steps[i]);
  if (steps.empty() && !usual_steps.empty())
    text += " less by " + std::to_string(usual_steps.size());
  const auto [lines, usual_lines] = Differing(outcome.lines, undisturbed.lines);
  if (!usual_lines.empty())
    text += "\n    without " + std::to_string(usual_lines.size()) + " of the lines";
  AddLines(text, lines);
  if (outcome.left != undisturbed.left) {
    AddLeft(text, outcome.left);
    if (outcome.left.empty())
      text += "\n    left: nothing";
  }
  if (outcome.unmatched != undisturbed.unmatched) {
    AddUnmatched(text, outcome.unmatched);
    if (outcome.unmatched.empty())
      text += "\n    released without being there: nothing";
  }
  return text.empty() ? " as undisturbed" : text;
}

class Totals : public testing::Environment {
  // One that fails comes to its end before it has seen all.
  static bool AllTestsPassed() {
    const testing::UnitTest &tests = *testing::UnitTest::GetInstance();
    return tests.successful_test_count() == tests.total_test_count();
  }

  void SetUp() override {
    // A region heap can use what lies above its record only: regions must not come from
    // blocks that were freed before, nor records from the arena of a thread.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    mallopt(M_ARENA_MAX, 1);
    Conceal(PLUGIN_PATH, "PLUGIN");
  }

  void TearDown() override {
    CleanSystem();
    RemoveDirectory();
    printf("%d faults injected\n", injected);
    if (Updating())
      WriteExpected();
    if (!AllTestsPassed())
      return;
    for (const auto &call : SweptCalls())
      EXPECT_TRUE(call->errors().empty() || call->has_failed())
          << "no operation reaches " << call->name();
    EXPECT_EQ(StaleOperation(), "") << "has expected results and is no more";
    if (const Keep *unused = UnusedKeep(); unused != nullptr) {
      ADD_FAILURE() << "nothing needs the row of " << unused->function << ": "
                    << unused->reason;
    }
  }
};
const auto *const totals = testing::AddGlobalTestEnvironment(new Totals);

class Sweep : public testing::TestWithParam<size_t> {
 protected:
  const Operation &operation = Operations()[GetParam()];
  std::vector<Fault> given;

  void SetUp() override {
    __lsan_disable();  // what is left is counted here
    for (const auto &call : SweptCalls())
      call->Install();
    for (const auto &[call, error, times] : operation.given)
      given.push_back({&CallNamed(call), error, 0, times});
  }
  void TearDown() override {
    faults::ResetAll();
    __lsan_enable();
  }

  Outcome Run(const std::vector<Fault> &faults) {
    CleanSystem();
    StartRun({});
    Recorder::Begin();
    StartRun(faults);
    operation.run();
    return Recorder::End();
  }

  void ExpectNothingUnlisted(const Outcome &outcome, const std::string &call) {
    for (const auto &[thing, count] : outcome.left) {
      EXPECT_NE(AllowedToStay(thing.first.c_str(), call.c_str(), operation.name.c_str(),
                              thing.second.c_str()),
                nullptr)
          << count << " " << thing.second << " of " << thing.first << " left";
    }
    for (const auto &[thing, count] : outcome.unmatched) {
      EXPECT_NE(AllowedToRelease(thing.first.c_str(), call.c_str(), operation.name.c_str(),
                                 thing.second.c_str()),
                nullptr)
          << thing.first << " releases " << count << " " << thing.second << " not there";
    }
  }

  bool Spared(const std::string &call) const {
    const auto is_given = [&](const Given &each) {
      return each.call == call && each.times == faults::kForever;
    };
    return std::any_of(operation.given.begin(), operation.given.end(), is_given) ||
           std::find(operation.spared.begin(), operation.spared.end(), call) !=
               operation.spared.end();
  }

  // What comes of the fault, told as in expected.txt.
  std::string Disturb(const Fault &fault, const Outcome &undisturbed) {
    SCOPED_TRACE(fault.call->name() + " number " + std::to_string(fault.skip + 1) +
                 (fault.times == 1 ? " fails once" : " and all later ones fail") + " with " +
                 ErrorName(fault.error));
    ++injected;
    std::vector<Fault> faults = given;
    faults.push_back(fault);
    const Outcome outcome = Run(faults);
    ExpectNothingUnlisted(outcome, fault.call->name());
    const Outcome afterwards = Run(given);
    EXPECT_TRUE(afterwards == undisturbed)
        << "afterwards:" << Described(afterwards, undisturbed);
    return Described(outcome, undisturbed);
  }

  // With the first, second ... of `made` calls failing.
  std::vector<std::string> Disturb(const SweptCall &call, int made, int error, int times,
                                   const Outcome &undisturbed) {
    std::vector<std::string> outcomes;
    for (int skip = 0; skip < made && (Updating() || !HasFailure()); ++skip)
      outcomes.push_back(Disturb({&call, error, skip, times}, undisturbed));
    return outcomes;
  }
};

// Neighbours with equal outcomes in one line.
std::string Told(const std::string &failure, const std::vector<std::string> &outcomes) {
  std::string text;
  for (size_t at = 0; at < outcomes.size();) {
    size_t end = at + 1;
    while (end < outcomes.size() && outcomes[end] == outcomes[at])
      ++end;
    text += "  " + failure + " " + std::to_string(at + 1);
    if (end - at > 1)
      text += "-" + std::to_string(end);
    text += ":" + outcomes[at] + "\n";
    at = end;
  }
  return text;
}

INSTANTIATE_TEST_SUITE_P(All, Sweep, testing::Range(size_t{0}, Operations().size()),
                         [](const auto &index) { return Operations()[index.param].name; });

TEST_P(Sweep, ComesBackFromEveryFailure) {
  const Outcome undisturbed = Run(given);
  ExpectNothingUnlisted(undisturbed, "");
  std::map<std::string, std::pair<const SweptCall *, int>> made;
  for (const auto &call : SweptCalls())
    made[call->name()] = {call.get(), call->made()};

  std::string text = "  run:";
  for (const StepResult &step : undisturbed.steps)
    text += " " + Described(step);
  AddLines(text, undisturbed.lines);
  AddLeft(text, undisturbed.left);
  AddUnmatched(text, undisturbed.unmatched);
  text += "\n";
  for (const auto &[name, call] : made) {
    if (call.second == 0 || Spared(name))
      continue;
    const int most = std::min(call.second, kMostPerCall);
    for (const int error : call.first->errors()) {
      const std::string failure = name + " " + ErrorName(error);
      const auto once = Disturb(*call.first, most, error, 1, undisturbed);
      // What is repeated until it goes would never end.
      if (error == EINTR || error == ETIMEDOUT) {
        text += Told(failure + " once", once);
        continue;
      }
      const auto for_good = Disturb(*call.first, most, error, faults::kForever, undisturbed);
      if (for_good == once)
        text += Told(failure, once);
      else
        text += Told(failure + " once", once) + Told(failure + " for good", for_good);
    }
  }
  if (Updating())
    Expect(operation.name, text);
  else
    EXPECT_TRUE(text == Expected(operation.name))
        << "KELCORE_SWEEP_UPDATE=1 writes what is seen now into expected.txt\n"
        << Difference(Expected(operation.name), text, 12);
}

}  // namespace
