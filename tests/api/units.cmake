# The unit manager against simulated units served in the test process over
# real links: TCP on 127.0.0.1 and a pseudo-terminal. Discovery runs in a
# child process inside a private network namespace (skipped without root).
if(TARGET tavro_sim)
  tavro_add_gtest(api_tavrounits_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/tavrounits_utest.cpp
                  LIBS tavro_sim TIMEOUT 120)
endif()
