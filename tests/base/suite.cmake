dravix_test_suite(base)
