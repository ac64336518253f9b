# The tavroSim program run as a child process. In a private network namespace
# of the test (needs root) it listens on the unit's own port 40358 and answers
# mDNS; without root it takes a free port and the mDNS part is skipped.
if(TARGET tavroSim)
  tavro_add_gtest(sim_sime2e SOURCES ${CMAKE_CURRENT_LIST_DIR}/sime2e.cpp LIBS tavro_sim
                  TIMEOUT 90 LABELS netns)
  target_compile_definitions(sim_sime2e PRIVATE TAVRO_SIM_PROGRAM="$<TARGET_FILE:tavroSim>")
  add_dependencies(sim_sime2e tavroSim)
endif()
