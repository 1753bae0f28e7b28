# Options that every target of ours is compiled with, and the shorthands for libraries and tests.
add_library(quorl_warnings INTERFACE)
target_compile_options(quorl_warnings INTERFACE -Wall -Wextra -Wpedantic)
if(QUORL_WERROR)
  target_compile_options(quorl_warnings INTERFACE -Werror)
endif()

# What makes a fault in memory harder to use; the sanitizers, which find such faults, do without.
add_library(quorl_hardening INTERFACE)
target_compile_options(quorl_hardening INTERFACE -fstack-protector-strong -fstack-clash-protection
                       -fcf-protection)
target_compile_definitions(quorl_hardening INTERFACE _GLIBCXX_ASSERTIONS
                           $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
target_link_options(quorl_hardening INTERFACE LINKER:-z,relro LINKER:-z,now LINKER:--as-needed)

# Of what a program loads that is not ours and has no sanitizer's library, as the web process.
add_library(quorl_plugin_options INTERFACE)
target_link_libraries(quorl_plugin_options INTERFACE quorl_warnings quorl_hardening)

add_library(quorl_options INTERFACE)
target_link_libraries(quorl_options INTERFACE quorl_warnings)
if(NOT QUORL_SANITIZE)
  target_link_libraries(quorl_options INTERFACE quorl_hardening)
else()
  target_compile_options(quorl_options INTERFACE -fsanitize=${QUORL_SANITIZE}
                         -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(quorl_options INTERFACE -fsanitize=${QUORL_SANITIZE})
endif()
if(QUORL_FUZZ)
  target_compile_options(quorl_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# quorl_library(NAME SOURCES ... PUBLIC_INCLUDE dir ... LIBS lib ... PRIVATE_LIBS lib ...)
function(quorl_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_INCLUDE;LIBS;PRIVATE_LIBS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${ARG_PUBLIC_INCLUDE})
  target_link_libraries(${name} PUBLIC ${ARG_LIBS} PRIVATE quorl_options ${ARG_PRIVATE_LIBS})
endfunction()

# quorl_test(NAME SOURCES ... LIBS ... LABEL label [TIMEOUT seconds])
# Each label has a target tests_<label> that builds the tests which carry it.
# Every test case runs in a process of its own, since the system's caches live as long as one.
function(quorl_test name)
  cmake_parse_arguments(ARG "" "LABEL;TIMEOUT" "SOURCES;LIBS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE quorl_options ${ARG_LIBS} GTest::gtest_main GTest::gmock)
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests/support)
  target_compile_definitions(${name} PRIVATE
    QUORL_TEST_DATA="${CMAKE_SOURCE_DIR}/tests/data"
    QUORL_SOURCE_DIR="${CMAKE_SOURCE_DIR}" QUORL_BINARY_DIR="${CMAKE_BINARY_DIR}")
  if(NOT TARGET tests_${ARG_LABEL})
    add_custom_target(tests_${ARG_LABEL})
  endif()
  add_dependencies(tests_${ARG_LABEL} ${name})
  set(environment "")
  if(QUORL_SANITIZE AND ARG_LABEL STREQUAL "gui")
    # The toolkit keeps much until the end, and the agent, which nobody may trace, cannot be searched
    # for leaks. Its standard error is in its log, which goes with the test: a report has a file.
    set(environment ENVIRONMENT
      "ASAN_OPTIONS=detect_leaks=0:log_path=${CMAKE_BINARY_DIR}/sanitizer-report"
      "UBSAN_OPTIONS=print_stacktrace=1:log_path=${CMAKE_BINARY_DIR}/sanitizer-report")
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS ${ARG_LABEL} ${environment})
endfunction()
