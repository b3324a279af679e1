dravix_test_suite(users)
if(TARGET lang_databases)
  add_dependencies(tests_users lang_databases)
endif()
