dravix_test_suite(live)
