# The ".tavd" fuzz target in the test suite.
set(TAVRO_TAVD_FUZZ_SECONDS 20 CACHE STRING "Length of the tavd fuzz run in the test suite")
tavro_add_fuzz_smoke(api tavd_fuzz SECONDS ${TAVRO_TAVD_FUZZ_SECONDS}
                     REPLAY ${CMAKE_CURRENT_LIST_DIR}/zoap_fuzz_replay.cpp LIBS tavro_api)

# The seed generator. Its output must match the seeds in fuzz/corpus/tavd
# byte for byte: a change in what DataFile writes shows here (then
# regenerate them with "tavd_corpus fuzz/corpus/tavd").
add_executable(tavd_corpus ${PROJECT_SOURCE_DIR}/fuzz/tavd_corpus.cpp)
target_link_libraries(tavd_corpus PRIVATE tavro_api)
add_test(NAME api_tavd_corpus_current
         COMMAND sh -c "rm -rf tavd-seeds && mkdir tavd-seeds && \"$0\" tavd-seeds && n=0 && \
for f in tavd-seeds/*; do cmp \"$f\" \"$1/$(basename \"$f\")\" || exit 1; n=$((n+1)); done && \
echo \"$n seeds match\""
                 $<TARGET_FILE:tavd_corpus> ${PROJECT_SOURCE_DIR}/fuzz/corpus/tavd
         WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
set_tests_properties(api_tavd_corpus_current PROPERTIES TIMEOUT 60)
