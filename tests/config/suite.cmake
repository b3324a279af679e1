dravix_test_suite(config)
if(TARGET lang_databases)
  add_dependencies(tests_config lang_databases)
endif()
# Sample files from elsewhere, beside the source tree (not shipped).
target_compile_definitions(tests_config PRIVATE DRAVIX_SHARED_TESTDATA="${PROJECT_SOURCE_DIR}/../shared/testdata")
