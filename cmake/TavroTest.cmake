# Test helpers shared by every test folder.
#
# tavro_add_gtest(NAME SOURCES a.cpp ... [LIBS ...] [TIMEOUT s] [WRAPPER cmd ...]
#                 [ENV VAR=value ...] [LABELS ...])
# builds one GoogleTest executable and registers it as one ctest test with a
# time limit, so a hung test fails instead of blocking the run.
find_package(GTest REQUIRED)

function(tavro_add_gtest name)
  cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;WRAPPER;ENV;LABELS" ${ARGN})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT ${TAVRO_TEST_TIMEOUT})
  endif()
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE GTest::gtest_main GTest::gmock ${T_LIBS})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  add_test(NAME ${name} COMMAND ${T_WRAPPER} $<TARGET_FILE:${name}>
           WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
  # Each test's own scratch folder, there before it runs.
  file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/tmp-${name})
  set(env "TAVRO_TEST_TMP=${CMAKE_CURRENT_BINARY_DIR}/tmp-${name}" ${T_ENV})
  if(TAVRO_SANITIZE)
    list(APPEND env "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=1"
         "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
         "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1")
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${T_TIMEOUT} ENVIRONMENT "${env}")
  if(T_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${T_LABELS}")
  endif()
endfunction()

# tavro_add_usb_gtest(NAME SOURCES a.cpp ... [LIBS ...])
# a GoogleTest of real libusb against emulated USB devices: it runs under
# umockdev-wrapper, which preloads libumockdev-preload, and links the device
# emulation of tests/comms/usbmock.cpp. Without umockdev it still builds and
# runs the parts that need no device and skips the rest, saying why
# (TAVRO_HAVE_UMOCKDEV and TAVRO_USB_SKIP tell the test).
function(tavro_add_usb_gtest name)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS" ${ARGN})
  pkg_check_modules(UMOCKDEV IMPORTED_TARGET umockdev-1.0)
  find_program(UMOCKDEV_WRAPPER umockdev-wrapper)
  set(skip "")
  set(wrapper)
  if(NOT UMOCKDEV_FOUND)
    set(skip "umockdev-1.0 development files not found (install libumockdev-dev)")
  elseif(NOT UMOCKDEV_WRAPPER)
    set(skip "umockdev-wrapper not found (install umockdev)")
  endif()
  if(UMOCKDEV_FOUND)
    list(APPEND T_SOURCES ${PROJECT_SOURCE_DIR}/tests/comms/usbmock.cpp)
    list(APPEND T_LIBS PkgConfig::UMOCKDEV)
  endif()
  if(skip STREQUAL "")
    set(wrapper WRAPPER ${UMOCKDEV_WRAPPER})
  else()
    message(STATUS "${name}: device tests will skip: ${skip}")
  endif()
  tavro_add_gtest(${name} SOURCES ${T_SOURCES} LIBS ${T_LIBS} ${wrapper} TIMEOUT 60 LABELS usb)
  target_compile_definitions(${name} PRIVATE TAVRO_HAVE_UMOCKDEV=$<BOOL:${UMOCKDEV_FOUND}>
                                             "TAVRO_USB_SKIP=\"${skip}\"")
  if(NOT skip STREQUAL "")
    set_tests_properties(${name} PROPERTIES SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
  endif()
endfunction()

# Every <folder>/*_test.cpp becomes its own test executable linked with LIBS;
# every <folder>/*.cmake is included for tests that need something special
# (a wrapper, root, a network namespace).
function(tavro_add_gtest_folder prefix)
  cmake_parse_arguments(F "" "" "LIBS" ${ARGN})
  file(GLOB tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_test.cpp)
  foreach(src ${tests})
    get_filename_component(base ${src} NAME_WE)
    tavro_add_gtest(${prefix}_${base} SOURCES ${src} LIBS ${F_LIBS})
  endforeach()
endfunction()

# tavro_add_fuzz_smoke(PREFIX TARGET SECONDS s REPLAY sources... LIBS libs...)
# puts the fuzz target fuzz/TARGET.cpp into the suite twice:
# - PREFIX_<name>_fuzz_replay, always: the target built with this build's own
#   compiler (and sanitizers, if any) with the driver tests/common/fuzzreplay.cpp
#   and the target's mutations (REPLAY, see fuzzreplay.h); it replays
#   the seeds in fuzz/corpus/<name> and then mutated seeds for a few seconds;
# - PREFIX_<name>_libfuzzer, when clang is at hand: libFuzzer proper for
#   SECONDS, the target of a -DTAVRO_FUZZ=ON build, or else one small clang
#   build in fuzz-clang/ of this build folder that every fuzz test shares.
# <name> is TARGET without its "_fuzz" ending.
function(tavro_add_fuzz_smoke prefix target)
  cmake_parse_arguments(F "" "SECONDS" "REPLAY;LIBS" ${ARGN})
  string(REGEX REPLACE "_fuzz$" "" name ${target})
  set(corpus ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
  set(script ${PROJECT_SOURCE_DIR}/fuzz/fuzz-smoke.sh)

  add_executable(${target}_replay ${PROJECT_SOURCE_DIR}/fuzz/${target}.cpp ${F_REPLAY}
                                 ${PROJECT_SOURCE_DIR}/tests/common/fuzzreplay.cpp)
  target_include_directories(${target}_replay PRIVATE ${PROJECT_SOURCE_DIR}/tests/common)
  target_link_libraries(${target}_replay PRIVATE ${F_LIBS})
  add_test(NAME ${prefix}_${name}_fuzz_replay COMMAND ${target}_replay -seconds=3 ${corpus})
  set_tests_properties(${prefix}_${name}_fuzz_replay PROPERTIES TIMEOUT 120 LABELS fuzz)

  set(test ${prefix}_${name}_libfuzzer)
  if(TAVRO_FUZZ)
    add_test(NAME ${test} COMMAND ${script} --binary $<TARGET_FILE:${target}> ${PROJECT_SOURCE_DIR}
                                  ${CMAKE_BINARY_DIR}/fuzz-run ${F_SECONDS} ${target})
  else()
    find_program(TAVRO_CLANGXX NAMES clang++ clang++-19 clang++-18 clang++-17 clang++-16
                                      clang++-15 clang++-14)
    find_program(TAVRO_CLANG NAMES clang clang-19 clang-18 clang-17 clang-16 clang-15 clang-14)
    if(TAVRO_CLANGXX AND TAVRO_CLANG)
      add_test(NAME ${test} COMMAND ${script} --clang ${TAVRO_CLANG} ${TAVRO_CLANGXX}
                                    ${PROJECT_SOURCE_DIR} ${CMAKE_BINARY_DIR}/fuzz-clang
                                    ${F_SECONDS} ${target})
    else()
      message(STATUS "clang++ not found: ${test} is left out (the replay driver stays)")
    endif()
  endif()
  if(TEST ${test})
    # One shared clang build folder: the runs take turns.
    set_tests_properties(${test} PROPERTIES TIMEOUT 900 LABELS fuzz RESOURCE_LOCK fuzz-clang)
  endif()
endfunction()

# tavro_add_qtest(NAME SOURCES a.cpp ... [LIBS ...] [TIMEOUT s] [ENV VAR=value ...])
# builds one QtTest executable (AUTOMOC on, linked with Qt5::Test) and
# registers it with a time limit. It runs on the offscreen platform, with
# XDG_RUNTIME_DIR in the build folder and its own XDG_CONFIG_HOME, which a
# setup test empties first so that no settings survive from an earlier run.
# Under sanitizers the folder's lsan.supp, if any, suppresses the leaks of
# the libraries underneath.
function(tavro_add_qtest name)
  cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;ENV" ${ARGN})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT ${TAVRO_TEST_TIMEOUT})
  endif()
  add_executable(${name} ${T_SOURCES})
  set_target_properties(${name} PROPERTIES AUTOMOC ON)
  target_link_libraries(${name} PRIVATE Qt5::Test ${T_LIBS})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)

  set(runtime ${CMAKE_CURRENT_BINARY_DIR}/xdg-runtime)
  if(NOT EXISTS ${runtime})
    file(MAKE_DIRECTORY ${runtime})
    execute_process(COMMAND chmod 700 ${runtime})
  endif()
  set(config ${CMAKE_CURRENT_BINARY_DIR}/xdg-config-${name})
  add_test(NAME ${name}_settings COMMAND ${CMAKE_COMMAND} -E rm -rf ${config})
  set_tests_properties(${name}_settings PROPERTIES TIMEOUT 30 FIXTURES_SETUP ${name}_settings)

  add_test(NAME ${name} COMMAND $<TARGET_FILE:${name}> WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
  file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/tmp-${name})
  set(env "QT_QPA_PLATFORM=offscreen" "XDG_RUNTIME_DIR=${runtime}" "XDG_CONFIG_HOME=${config}"
          "TAVRO_TEST_TMP=${CMAKE_CURRENT_BINARY_DIR}/tmp-${name}" ${T_ENV})
  if(TAVRO_SANITIZE)
    # Qt's libraries have no frame pointers: full unwinding gives the
    # stacks that the suppressions match.
    list(APPEND env "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=1:fast_unwind_on_malloc=0"
         "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
         "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1")
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/lsan.supp)
      list(APPEND env "LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/lsan.supp:print_suppressions=0")
    endif()
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${T_TIMEOUT} ENVIRONMENT "${env}"
                       FIXTURES_REQUIRED ${name}_settings LABELS gui)
endfunction()
