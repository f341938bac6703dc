// The process environment.

#include "kelcore_env.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

namespace {

// A variable of this process alone, gone when the test ends.
class Variable {
 public:
  explicit Variable(const char *value) : name_("KEL_ENV_TEST_" + std::to_string(getpid())) {
    if (value != nullptr)
      setenv(name_.c_str(), value, 1);
    else
      unsetenv(name_.c_str());
  }
  ~Variable() { unsetenv(name_.c_str()); }
  Variable(const Variable &) = delete;
  Variable &operator=(const Variable &) = delete;
  const char *name() const { return name_.c_str(); }

 private:
  std::string name_;
};

TEST(Env, GivesTheValueOfAVariable) {
  const Variable variable("some value=with, signs");
  EXPECT_STREQ(KEL_GetEnv(variable.name()), "some value=with, signs");
}

TEST(Env, GivesTheEnvironmentsOwnTextNotACopy) {
  const Variable variable("value");
  EXPECT_EQ(KEL_GetEnv(variable.name()), getenv(variable.name()));
}

TEST(Env, UnsetVariableGivesNull) {
  const Variable variable(nullptr);
  EXPECT_EQ(KEL_GetEnv(variable.name()), nullptr);
}

TEST(Env, EmptyVariableGivesAnEmptyText) {
  const Variable variable("");
  EXPECT_STREQ(KEL_GetEnv(variable.name()), "");
}

TEST(Env, SeesALaterChange) {
  const Variable variable("before");
  setenv(variable.name(), "after", 1);
  EXPECT_STREQ(KEL_GetEnv(variable.name()), "after");
}

}  // namespace
