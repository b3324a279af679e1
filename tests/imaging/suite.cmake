dravix_test_suite(imaging)

# valgrind shows programs a CPU without AVX-512, so the scaling tests run
# under it prove that run-time dispatch only picks paths the CPU has (a
# wrong pick dies of an illegal instruction). Sanitized builds cannot run
# under valgrind.
find_program(VALGRIND_PROGRAM valgrind)
if(VALGRIND_PROGRAM AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  add_test(NAME imaging.UnderValgrind
           COMMAND ${VALGRIND_PROGRAM} -q --error-exitcode=9 $<TARGET_FILE:tests_imaging>
                   --gtest_brief=1)
  set_tests_properties(imaging.UnderValgrind PROPERTIES TIMEOUT 600)
endif()
