dravix_test_suite(settings)
if(TARGET lang_databases)
  add_dependencies(tests_settings lang_databases)
endif()
