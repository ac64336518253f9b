# mDNS discovery: tests beyond the pure parser tests of zmdns_test.cpp.

# Real sockets inside a private network namespace of the test process (needs
# root): a scripted responder and a real avahi-daemon. Skips itself with a
# message when no namespace can be made.
tavro_add_gtest(comms_zmdns_netns SOURCES ${CMAKE_CURRENT_LIST_DIR}/zmdns_netns.cpp
                LIBS tavro_comms TIMEOUT 60 LABELS netns)

# A short fuzz run of the reply parser.
set(TAVRO_MDNS_FUZZ_SECONDS 25 CACHE STRING "Length of the mDNS fuzz run in the test suite")
set(mdns_corpus ${PROJECT_SOURCE_DIR}/fuzz/corpus/mdns)

# 1. The replay driver, always: the fuzz target built with this build's own
#    compiler (and sanitizers, if any) replays the seed corpus and then mutated
#    seeds for a few seconds. Costs two small files to build.
add_executable(mdns_fuzz_replay ${PROJECT_SOURCE_DIR}/fuzz/mdns_fuzz.cpp
                                ${CMAKE_CURRENT_LIST_DIR}/mdns_fuzz_replay.cpp)
target_link_libraries(mdns_fuzz_replay PRIVATE tavro_comms)
add_test(NAME comms_mdns_fuzz_replay COMMAND mdns_fuzz_replay -seconds=3 ${mdns_corpus})
set_tests_properties(comms_mdns_fuzz_replay PROPERTIES TIMEOUT 120 LABELS fuzz)

# 2. libFuzzer proper, when clang is at hand. In a -DTAVRO_FUZZ=ON build the
#    target is built here already; otherwise the test configures a small clang
#    build of its own (tavro_core, tavro_comms and mdns_fuzz only) in
#    fuzz-clang/ of this build folder, which later runs reuse.
if(TAVRO_FUZZ)
  add_test(NAME comms_mdns_libfuzzer
           COMMAND ${CMAKE_CURRENT_LIST_DIR}/mdns_fuzz_smoke.sh --binary $<TARGET_FILE:mdns_fuzz>
                   ${PROJECT_SOURCE_DIR} ${CMAKE_BINARY_DIR}/fuzz-run ${TAVRO_MDNS_FUZZ_SECONDS})
else()
  find_program(TAVRO_CLANGXX NAMES clang++ clang++-19 clang++-18 clang++-17 clang++-16
                                    clang++-15 clang++-14)
  find_program(TAVRO_CLANG NAMES clang clang-19 clang-18 clang-17 clang-16 clang-15 clang-14)
  if(TAVRO_CLANGXX AND TAVRO_CLANG)
    add_test(NAME comms_mdns_libfuzzer
             COMMAND ${CMAKE_CURRENT_LIST_DIR}/mdns_fuzz_smoke.sh --clang ${TAVRO_CLANG}
                     ${TAVRO_CLANGXX} ${PROJECT_SOURCE_DIR} ${CMAKE_BINARY_DIR}/fuzz-clang
                     ${TAVRO_MDNS_FUZZ_SECONDS})
  else()
    message(STATUS "clang++ not found: the mDNS libFuzzer run is left out (the replay driver stays)")
  endif()
endif()
if(TEST comms_mdns_libfuzzer)
  set_tests_properties(comms_mdns_libfuzzer PROPERTIES TIMEOUT 900 LABELS fuzz)
endif()
