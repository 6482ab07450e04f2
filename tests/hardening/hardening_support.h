#ifndef QEL_TESTS_HARDENING_HARDENING_SUPPORT_H_
#define QEL_TESTS_HARDENING_HARDENING_SUPPORT_H_

// What the hardening tests share. They run their scenarios in children made by runChild, as
// the log tests do.

#include <ftw.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <qel/log.h>

#include "log/log_test_support.h"

namespace qeltest {

// Removes `path` and everything below it, symbolic links not followed. Quiet on failure.
inline void removeTree(const std::string& path) {
    auto removeOne = [](const char* name, const struct stat*, int, struct FTW*) {
        remove(name);
        return 0;
    };
    nftw(path.c_str(), removeOne, 16, FTW_DEPTH | FTW_PHYS);
}

// The number of times `needle` occurs in `text`.
inline size_t countOf(const std::string& text, const std::string& needle) {
    size_t count = 0;
    for (size_t at = text.find(needle); at != std::string::npos;
         at = text.find(needle, at + needle.size())) {
        ++count;
    }
    return count;
}

}  // namespace qeltest

#endif  // QEL_TESTS_HARDENING_HARDENING_SUPPORT_H_
