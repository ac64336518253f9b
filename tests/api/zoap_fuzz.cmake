# The Zoap fuzz target in the test suite.
set(TAVRO_ZOAP_FUZZ_SECONDS 20 CACHE STRING "Length of the Zoap fuzz run in the test suite")
set(zoap_corpus ${PROJECT_SOURCE_DIR}/fuzz/corpus/zoap)

# 1. The replay driver, always: the fuzz target built with this build's own
#    compiler (and sanitizers, if any) replays the seeds and then mutated
#    seeds for a few seconds.
add_executable(zoap_fuzz_replay ${PROJECT_SOURCE_DIR}/fuzz/zoap_fuzz.cpp
                                ${CMAKE_CURRENT_LIST_DIR}/zoap_fuzz_replay.cpp)
target_link_libraries(zoap_fuzz_replay PRIVATE tavro_api)
add_test(NAME api_zoap_fuzz_replay COMMAND zoap_fuzz_replay -seconds=3 ${zoap_corpus})
set_tests_properties(api_zoap_fuzz_replay PROPERTIES TIMEOUT 120 LABELS fuzz)

# 2. libFuzzer proper, when clang is at hand: the target of a -DTAVRO_FUZZ=ON
#    build, or else a small clang build of its own in fuzz-clang-zoap/ of this
#    build folder, which later runs reuse.
if(TAVRO_FUZZ)
  add_test(NAME api_zoap_libfuzzer
           COMMAND ${CMAKE_CURRENT_LIST_DIR}/zoap_fuzz_smoke.sh --binary $<TARGET_FILE:zoap_fuzz>
                   ${PROJECT_SOURCE_DIR} ${CMAKE_BINARY_DIR}/fuzz-run ${TAVRO_ZOAP_FUZZ_SECONDS})
else()
  find_program(TAVRO_CLANGXX NAMES clang++ clang++-19 clang++-18 clang++-17 clang++-16
                                    clang++-15 clang++-14)
  find_program(TAVRO_CLANG NAMES clang clang-19 clang-18 clang-17 clang-16 clang-15 clang-14)
  if(TAVRO_CLANGXX AND TAVRO_CLANG)
    add_test(NAME api_zoap_libfuzzer
             COMMAND ${CMAKE_CURRENT_LIST_DIR}/zoap_fuzz_smoke.sh --clang ${TAVRO_CLANG}
                     ${TAVRO_CLANGXX} ${PROJECT_SOURCE_DIR} ${CMAKE_BINARY_DIR}/fuzz-clang-zoap
                     ${TAVRO_ZOAP_FUZZ_SECONDS})
  else()
    message(STATUS "clang++ not found: the Zoap libFuzzer run is left out (the replay driver stays)")
  endif()
endif()
if(TEST api_zoap_libfuzzer)
  set_tests_properties(api_zoap_libfuzzer PROPERTIES TIMEOUT 900 LABELS fuzz)
endif()
