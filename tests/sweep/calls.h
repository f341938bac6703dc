// The calls of the C library and the system that the library makes and that can
// fail, each with the errors that matter, and what each makes or releases.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

class SweptCall {
 public:
  SweptCall(std::string name, std::vector<int> errors)
      : name_(std::move(name)), errors_(std::move(errors)) {}
  virtual ~SweptCall() = default;
  SweptCall(const SweptCall &) = delete;
  SweptCall &operator=(const SweptCall &) = delete;

  // Counts, fails and follows the call from now on.
  virtual void Install() = 0;

  const std::string &name() const { return name_; }
  // Each shows in some result or message. None for a call that is followed only.
  const std::vector<int> &errors() const { return errors_; }

  // By the library, since StartRun.
  int made() const { return made_; }
  // Whether it ever failed.
  bool has_failed() const { return has_failed_; }

 protected:
  friend void StartRun(const std::vector<struct Fault> &faults);
  // The error of this call, or 0.
  int Due();

 private:
  const std::string name_;
  const std::vector<int> errors_;
  // A worker's calls count, too.
  std::atomic<int> made_ = 0;
  std::atomic<bool> has_failed_ = false;
};

struct Fault {
  const SweptCall *call;
  int error;
  // The calls after the first `skip` fail, `times` times.
  int skip;
  int times;
};

const std::vector<std::unique_ptr<SweptCall>> &SweptCalls();
SweptCall &CallNamed(const std::string &name);
// Sets the counts back, and what fails from now on.
void StartRun(const std::vector<Fault> &faults);

// While it lives, files opened to be emptied keep what they hold.
class KeepContents {
 public:
  KeepContents();
  ~KeepContents();
  KeepContents(const KeepContents &) = delete;
  KeepContents &operator=(const KeepContents &) = delete;
};
