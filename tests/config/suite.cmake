dravix_test_suite(config)
if(TARGET lang_databases)
  add_dependencies(tests_config lang_databases)
endif()
