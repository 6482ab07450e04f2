// The hardening tests run their scenarios in forked children, like the log
// tests: the helpers are compiled into this executable as well.
#include "log/log_test_support.cpp"
