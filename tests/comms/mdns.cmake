# mDNS discovery: tests beyond the pure parser tests of zmdns_test.cpp.

# Real sockets inside a private network namespace of the test process (needs
# root): a scripted responder and a real avahi-daemon. Skips itself with a
# message when no namespace can be made.
tavro_add_gtest(comms_zmdns_netns SOURCES ${CMAKE_CURRENT_LIST_DIR}/zmdns_netns.cpp
                LIBS tavro_comms TIMEOUT 60 LABELS netns)

# A short fuzz run of the reply parser.
set(TAVRO_MDNS_FUZZ_SECONDS 25 CACHE STRING "Length of the mDNS fuzz run in the test suite")
tavro_add_fuzz_smoke(comms mdns_fuzz SECONDS ${TAVRO_MDNS_FUZZ_SECONDS}
                     REPLAY ${CMAKE_CURRENT_LIST_DIR}/mdns_fuzz_replay.cpp LIBS tavro_comms)
