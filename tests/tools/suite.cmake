# Tests that drive the real `dravix` program.
dravix_test_suite(tools)
add_dependencies(tests_tools dravix_cli)
target_compile_definitions(tests_tools PRIVATE DRAVIX_VERSION="${PROJECT_VERSION}")
