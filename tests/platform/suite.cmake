dravix_test_suite(platform)
