dravix_test_suite(config)
