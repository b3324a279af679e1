# The recorder: cameras recorded into files, in the library and through
# `dravix record`.
dravix_test_suite(recorder)
add_dependencies(tests_recorder dravix_cli)
