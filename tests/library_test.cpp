// Plug-ins, with a real one.

#include "kelcore_library.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "faults.h"
#include "trace_capture.h"

namespace {

TraceLine Error(const char *func, const std::string &message) {
  return {"ERROR", "kellibrary", "kelcore_library", func, message};
}

TEST(Library, LoadsAPluginAndCallsIt) {
  int flags = 0;
  faults::dlopen.Replace([&](const char *path, int f) {
    flags = f;
    return faults::dlopen.Real(path, f);
  });
  TraceCapture trace;
  void *plugin = KEL_LibraryLoad(PLUGIN_PATH);
  ASSERT_NE(plugin, nullptr);
  EXPECT_EQ(flags, RTLD_NOW);
  auto answer = reinterpret_cast<int (*)()>(KEL_LibraryGetFunc(plugin, "plugin_answer"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42);
  EXPECT_EQ(KEL_LibraryUnLoad(plugin), 0);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST(Library, AMissingOneIsTracedWithTheLoadersWords) {
  TraceCapture trace;
  EXPECT_EQ(KEL_LibraryLoad("/nonexistent/plugin.so"), nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_LibraryLoad",
                         "Cannot load library err(/nonexistent/plugin.so: cannot open shared "
                         "object file: No such file or directory)\n")}));
}

TEST(Library, AMissingSymbolIsTracedWithTheLoadersWords) {
  void *plugin = KEL_LibraryLoad(PLUGIN_PATH);
  TraceCapture trace;
  EXPECT_EQ(KEL_LibraryGetFunc(plugin, "no_such_symbol"), nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_LibraryGetFunc",
                                       "Cannot load symbol 'no_such_symbol', err(" PLUGIN_PATH
                                       ": undefined symbol: no_such_symbol)\n")}));
  KEL_LibraryUnLoad(plugin);
}

TEST(Library, ANullSymbolWithoutAnErrorIsTracedWithAQuestionMark) {
  TraceCapture trace;
  faults::dlsym.Fail(nullptr, 0);
  faults::dlerror.Fail(nullptr, 0);
  EXPECT_EQ(KEL_LibraryGetFunc(nullptr, "odd"), nullptr);
  faults::ResetAll();
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KEL_LibraryGetFunc", "Cannot load symbol 'odd', err(?)\n")}));
}

// The loader's error does not wait for the program, whether or not it is traced.
TEST(Library, FailuresTakeTheLoadersErrorWithThem) {
  EXPECT_EQ(KEL_LibraryLoad("/no/such/library.so"), nullptr);
  EXPECT_EQ(::dlerror(), nullptr);
  void *plugin = KEL_LibraryLoad(PLUGIN_PATH);
  EXPECT_EQ(KEL_LibraryGetFunc(plugin, "no_such_symbol"), nullptr);
  EXPECT_EQ(::dlerror(), nullptr);
  KEL_LibraryUnLoad(plugin);
}

TEST(Library, UnloadingReturns0WhateverHappens) {
  void *plugin = KEL_LibraryLoad(PLUGIN_PATH);
  faults::dlclose.Fail(-1, 0, 0, 1);
  EXPECT_EQ(KEL_LibraryUnLoad(plugin), 0);
  EXPECT_EQ(KEL_LibraryUnLoad(plugin), 0);
  EXPECT_EQ(KEL_LibraryUnLoad(nullptr), 0);
  EXPECT_EQ(faults::dlclose.Count(), 2);
}

}  // namespace
