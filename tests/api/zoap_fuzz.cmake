# The Zoap fuzz target in the test suite.
set(TAVRO_ZOAP_FUZZ_SECONDS 20 CACHE STRING "Length of the Zoap fuzz run in the test suite")
tavro_add_fuzz_smoke(api zoap_fuzz SECONDS ${TAVRO_ZOAP_FUZZ_SECONDS}
                     REPLAY ${CMAKE_CURRENT_LIST_DIR}/zoap_fuzz_replay.cpp LIBS tavro_api)
