# Tests of a cross-compiled build run under an emulator (see CMakePresets.json,
# "arm64").

# Where tests find the program of a target that they start themselves: natively
# the program, else a script that starts the emulator with it.
function(kelcore_program result target)
  if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    set(${result} "$<TARGET_FILE:${target}>" PARENT_SCOPE)
    return()
  endif()
  set(_script "${PROJECT_BINARY_DIR}/emulated/${target}")
  get_property(_made GLOBAL PROPERTY KELCORE_EMULATED_${target})
  if(NOT _made)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " _emulator)
    file(GENERATE OUTPUT "${_script}"
      CONTENT "#!/bin/sh\nexec ${_emulator} \"$<TARGET_FILE:${target}>\" \"$@\"\n"
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    set_property(GLOBAL PROPERTY KELCORE_EMULATED_${target} ON)
  endif()
  set(${result} "${_script}" PARENT_SCOPE)
endfunction()

# What the emulator itself cannot do, by test and with the reason.
set(KELCORE_NOT_EMULATED
  # Death tests start themselves anew, which needs the system to know the emulator.
  "NonCacheDeathTest.AtStartThePairIsMallocAndFree"
  "NonCacheDeathTest.InstallingNothingKeepsTheDefaults"
  "NonCacheDeathTest.InstallingOnlyTheAllocatorKeepsTheDefaultRelease"
  "NonCacheDeathTest.InstallingOnlyTheReleaseKeepsTheDefaultAllocator"
  "TraceDeathTest.AStarBeyondTheTwentiethEntryServesNothing"
  "TraceDeathTest.AStarEntryAtTheEndOfTheListServesTracesToo"
  "TraceDeathTest.AStarEntryBeforeOthersServesTracesToo"
  "TraceDeathTest.AtStartLinesAreEchoedToStandardOutput"
  "TraceDeathTest.AtStartNothingIsPrinted"
  "TraceDeathTest.TheFirstLineGoesIntoTheSecondBuffer"
  "TraceDeathTest.TracesPrintsNothingUntilAStarEntryWithALevel"
  # The signals of its timers carry the host's number of the timer, which is not
  # the one that the program got: they are taken for those of a destroyed timer.
  "Timer.FiresOnceWithoutLoop"
  "Timer.FiresUntilStoppedWithLoop"
  "Timer.TheOlderOfTwoFiresAndGoesAsWell"
  "TimerDestroy.MayComeFromItsOwnCallback"
  "CppSemaphore.EndlessWaitsGoOnThroughSignals"
  "CppTimer.AnIntervalOfZeroIsShortNotStored"
  "CppTimer.CallsBackOnceOrPeriodically"
  "ProgramStreamsTest.ATerminalShowsTheProgressOfLargeFiles"
  # It shows a program another start time than the one that others see, so that a
  # publisher is taken for one that was killed.
  "PublishTest.AWatcherMayLeaveAndAnotherCome"
  "PublishTest.EventsWaitForAWatcher"
  "PublishTest.KilledPublisher"
  "PublishTest.NamesWithTheSameKey"
  "PublishTest.NewEventsAreKept"
  "PublishTest.OnePublisherUnderAName"
  "PublishTest.OneThatJustEndedWasNotKilled"
  "PublishTest.StoppedPublisherLeavesNothing"
  "PublishTest.TwoPublishersDoNotDisturbEachOther"
  "PublishTest.WatcherSeesStreamsFilesAndTotals"
  # Its own memory counts with the program's.
  "ProgramStreamsTest.MemoryDoesNotGrowWithTheFile"
  # It has no mq_notify.
  "IpcTest.TellsWhoIsNotified")
# Whole programs, for its timers and its start times.
set(KELCORE_PROGRAMS_NOT_EMULATED example_periodic_timer guide_timer_thread
  docs_header_kelcore_time stress_timer stress_kelstream)

# For every test of a directory, once all are made.
function(kelcore_spare_the_emulator)
  if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    return()
  endif()
  get_property(_tests DIRECTORY PROPERTY TESTS)
  list(JOIN KELCORE_NOT_EMULATED ":" _filter)
  foreach(_test IN LISTS _tests)
    set_property(TEST ${_test} APPEND PROPERTY ENVIRONMENT "GTEST_FILTER=-${_filter}")
    if(_test IN_LIST KELCORE_PROGRAMS_NOT_EMULATED)
      set_tests_properties(${_test} PROPERTIES DISABLED ON)
    endif()
  endforeach()
endfunction()

# That a name above is one of a test still, which a native build can tell. Not for a
# build that leaves some of them out.
function(kelcore_emulated_names_test)
  if(CMAKE_CROSSCOMPILING OR NOT TARGET kelstream OR NOT TARGET kelctl)
    return()
  endif()
  foreach(_directory IN ITEMS . cpp docs examples kelctl kelstream stress)
    get_property(_tests DIRECTORY ${_directory} PROPERTY TESTS)
    list(APPEND _all ${_tests})
    get_property(_targets DIRECTORY ${_directory} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(_target IN LISTS _targets)
      get_target_property(_libraries ${_target} LINK_LIBRARIES)
      if(_libraries MATCHES "GTest::gtest_main")
        list(APPEND _programs "$<TARGET_FILE:${_target}>")
      endif()
    endforeach()
  endforeach()
  foreach(_test IN LISTS KELCORE_PROGRAMS_NOT_EMULATED)
    if(NOT _test IN_LIST _all)
      message(FATAL_ERROR "tests/emulated.cmake: there is no test ${_test}")
    endif()
  endforeach()
  list(JOIN KELCORE_NOT_EMULATED ":" _cases)
  add_test(NAME emulated_names
    COMMAND sh "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/emulated_names.sh" "${_cases}" ${_programs})
endfunction()
