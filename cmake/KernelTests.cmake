# Kernel tests: test executables that need real network interfaces, run
# inside tests/support/sandbox/nsrun (fresh network + mount namespaces).
#
#   include(KernelTests)
#   zel_add_kernel_test(NAME <name> TARGET <exe-target>
#                       [SCENARIO <file>...] [ARGS <arg>...]
#                       [LABELS <label>...] [TIMEOUT <seconds>]
#                       [WORKING_DIRECTORY <dir>])
#
# The test runs `nsrun [--scenario F]... -- [emulator] <exe> ARGS...` (in the
# armhf VM: `run -- nsrun ... -- <exe> ARGS...`), is
# labelled "kernel" (ctest -L kernel / -LE kernel), and counts as skipped when
# nsrun exits 77 (no sandbox possible on this machine and CI is not "true").
# Each test gets its own namespaces, so kernel tests may run in parallel.
#
#   zel_add_kernel_gtest(NAME <name> TARGET <exe-target> [FILTER <pattern>] ...)
# is the same for a gtest executable, with FILTER passed as --gtest_filter.

include_guard(GLOBAL)

set(ZEL_NSRUN "${CMAKE_CURRENT_LIST_DIR}/../tests/support/sandbox/nsrun")
cmake_path(NORMAL_PATH ZEL_NSRUN)

function(zel_add_kernel_test)
  cmake_parse_arguments(PARSE_ARGV 0 ARG "" "NAME;TARGET;TIMEOUT;WORKING_DIRECTORY"
                        "SCENARIO;ARGS;LABELS")
  if(ARG_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "zel_add_kernel_test: unknown arguments: ${ARG_UNPARSED_ARGUMENTS}")
  endif()
  if(NOT ARG_NAME OR NOT ARG_TARGET)
    message(FATAL_ERROR "zel_add_kernel_test: NAME and TARGET are required")
  endif()
  if(NOT TARGET ${ARG_TARGET})
    message(FATAL_ERROR "zel_add_kernel_test(${ARG_NAME}): '${ARG_TARGET}' is not a target")
  endif()

  set(scenario_args "")
  foreach(scenario IN LISTS ARG_SCENARIO)
    cmake_path(ABSOLUTE_PATH scenario BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
    if(NOT EXISTS "${scenario}")
      message(FATAL_ERROR "zel_add_kernel_test(${ARG_NAME}): scenario '${scenario}' not found")
    endif()
    list(APPEND scenario_args --scenario "${scenario}")
  endforeach()

  # add_test only prepends the emulator when the first word is a target;
  # here the first word is nsrun, so add it ourselves: inside the sandbox for
  # qemu-arm, which runs one program; outside for the armhf VM, which boots a
  # whole machine in which nsrun makes the sandbox.
  set(emulator "")
  set(machine "")
  if(CMAKE_CROSSCOMPILING AND CMAKE_CROSSCOMPILING_EMULATOR)
    if(ZEL_ARMHF_VM)
      set(machine ${CMAKE_CROSSCOMPILING_EMULATOR})
    else()
      set(emulator ${CMAKE_CROSSCOMPILING_EMULATOR})
    endif()
  endif()

  set(workdir "${CMAKE_CURRENT_BINARY_DIR}")
  if(ARG_WORKING_DIRECTORY)
    set(workdir "${ARG_WORKING_DIRECTORY}")
  endif()

  add_test(NAME ${ARG_NAME}
           COMMAND ${machine} "${ZEL_NSRUN}" ${scenario_args} -- ${emulator} "$<TARGET_FILE:${ARG_TARGET}>" ${ARG_ARGS}
           WORKING_DIRECTORY "${workdir}")
  set(labels kernel ${ARG_LABELS})
  set_tests_properties(${ARG_NAME} PROPERTIES
                       LABELS "${labels}"
                       SKIP_RETURN_CODE 77)
  if(ARG_TIMEOUT)
    set_tests_properties(${ARG_NAME} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
  endif()
endfunction()

function(zel_add_kernel_gtest)
  cmake_parse_arguments(PARSE_ARGV 0 ARG "" "FILTER" "ARGS")
  set(args ${ARG_ARGS})
  if(ARG_FILTER)
    list(PREPEND args "--gtest_filter=${ARG_FILTER}")
  endif()
  # Colour codes make ctest logs unreadable.
  list(APPEND args --gtest_color=no)
  zel_add_kernel_test(${ARG_UNPARSED_ARGUMENTS} ARGS ${args})
endfunction()
