dravix_test_suite(live)

# The registry tests run a second process beside the test itself.
add_executable(live_registry_peer ${CMAKE_CURRENT_SOURCE_DIR}/live/registry_peer.cpp)
target_link_libraries(live_registry_peer PRIVATE dravix_static)
dravix_warnings(live_registry_peer)
add_dependencies(tests_live live_registry_peer)
