# Tests that drive the real `dravix` program.
find_package(nlohmann_json REQUIRED)
dravix_test_suite(tools LIBS nlohmann_json::nlohmann_json)
add_dependencies(tests_tools dravix_cli)
target_compile_definitions(tests_tools PRIVATE DRAVIX_VERSION="${PROJECT_VERSION}")

# The timeline page in Debian's headless Chromium (a screenshot is left at
# <build>/timeline-page.png).
add_test(NAME TimelinePage.InHeadlessChromium
         COMMAND ${PROJECT_SOURCE_DIR}/tests/tools/timeline-page-check ${PROJECT_BINARY_DIR})
set_tests_properties(TimelinePage.InHeadlessChromium PROPERTIES LABELS tools TIMEOUT 180)
