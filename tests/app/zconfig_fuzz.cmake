# The ".zconfig" fuzz target in the test suite.
set(TAVRO_ZCONFIG_FUZZ_SECONDS 20 CACHE STRING "Length of the zconfig fuzz run in the test suite")
tavro_add_fuzz_smoke(app zconfig_fuzz SECONDS ${TAVRO_ZCONFIG_FUZZ_SECONDS}
                     REPLAY ${CMAKE_CURRENT_LIST_DIR}/zconfig_fuzz_replay.cpp LIBS tavro_app)
