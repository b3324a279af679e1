dravix_test_suite(media)
