# Tests that drive the real `dravix` program.
find_package(nlohmann_json REQUIRED)
dravix_test_suite(tools LIBS nlohmann_json::nlohmann_json)
add_dependencies(tests_tools dravix_cli)
target_compile_definitions(tests_tools PRIVATE DRAVIX_VERSION="${PROJECT_VERSION}")
