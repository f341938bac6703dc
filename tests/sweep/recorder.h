// What one run of an operation does: the results of the library's functions, the
// ERROR lines that they trace, what they print, and what they leave open.
#pragma once

#include <errno.h>

#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

struct StepResult {
  std::string function;
  std::string result;
  int error = 0;  // errno afterwards, for a result that tells of a failure
  bool operator==(const StepResult &) const = default;
};

// Made by which function, what kind of thing.
using Left = std::map<std::pair<std::string, std::string>, int>;

struct Outcome {
  std::vector<StepResult> steps;
  std::vector<std::string> lines;  // traced and printed, without what varies
  Left left;
  Left unmatched;  // released by which function, without being there
  bool operator==(const Outcome &) const = default;
};

class Recorder {
 public:
  static void Begin();
  static Outcome End();

  static void Enter(const char *function);
  static void Leave(std::string result, int error);
  static void Print(const char *text);

  // Things that the function of the step made or released.
  static void Opened(const char *kind, std::string id);
  static void Closed(const char *kind, const std::string &id);
  // A queue or a named semaphore that may stay in the system when it is closed.
  static void Named(const char *kind, const char *name);
};

// Whether this thread is inside a function of the library: the sweep counts,
// fails and follows these calls only.
bool InLibrary();
// From here on this thread is, until it ends: it is one of the library's own.
void StayInLibrary();

// Leaves the library for the test's own work in a callback.
class Outside {
 public:
  Outside();
  ~Outside();
  Outside(const Outside &) = delete;
  Outside &operator=(const Outside &) = delete;

 private:
  bool before_;
};

// What a text holds of paths, addresses and times becomes a word.
std::string Normalised(std::string text);
// Has `Normalised` show `word` for `text`.
void Conceal(const std::string &text, const std::string &word);

inline std::string Shown(const char *text) {
  return text != nullptr ? '"' + Normalised(text) + '"' : "null";
}
template <typename R>
std::string Shown(R result) {
  if constexpr (std::is_pointer_v<R>)
    return result != nullptr ? "made" : "null";
  else
    return std::to_string(result);
}
inline std::string Shown(char *text) {
  return Shown(static_cast<const char *>(text));
}

template <typename R>
bool TellsOfFailure(R result) {
  if constexpr (std::is_pointer_v<R>)
    return result == nullptr;
  else if constexpr (std::is_signed_v<R>)
    return result < 0;
  else
    return false;
}

template <typename R, typename... Parameters>
R Step(const char *name, R (*function)(Parameters...),
       std::type_identity_t<Parameters>... arguments) {
  Recorder::Enter(name);
  errno = 0;
  if constexpr (std::is_void_v<R>) {
    function(arguments...);
    Recorder::Leave("done", 0);
  } else {
    R result = function(arguments...);
    const int error = errno;
    Recorder::Leave(Shown(result), TellsOfFailure(result) ? error : 0);
    return result;
  }
}

// One call of a function of the library.
#define CALL(function, ...) Step(#function, function __VA_OPT__(, ) __VA_ARGS__)
