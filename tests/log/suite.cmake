dravix_test_suite(log)
