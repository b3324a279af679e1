# The recorder: cameras recorded into files, in the library and through
# `dravix record`.
find_package(nlohmann_json REQUIRED)
dravix_test_suite(recorder LIBS nlohmann_json::nlohmann_json)
add_dependencies(tests_recorder dravix_cli)
