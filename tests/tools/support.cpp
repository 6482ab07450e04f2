// The helpers of the log tests are compiled into this executable as well.
#include "log/log_test_support.cpp"
