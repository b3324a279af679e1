dravix_test_suite(imaging)
