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
