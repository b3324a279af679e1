dravix_test_suite(schedule)
