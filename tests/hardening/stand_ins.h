#ifndef QEL_TESTS_HARDENING_STAND_INS_H_
#define QEL_TESTS_HARDENING_STAND_INS_H_

// What the hardening scenarios share: stand-ins for C library calls that the scenarios steer
// (defined once, in stand_ins.cpp, for the whole executable), small probes of the process, and
// the headers every scenario uses.

#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <qel/log.h>

#include "support/test_support.h"

extern const std::set<std::string>* g_looksFree;  // look free to the check before a creation
extern int g_foldersToRemove;   // mkdir removes so many of the folders it makes at once
extern long g_skippedSeconds;   // the monotonic clock runs ahead by so many seconds
// inotify_init1 fails (EMFILE, as when the user's instances are used up) once the process has
// this many instances open; -1: no limit.
extern int g_inotifyInstances;
extern int g_factsRefusal;   // fsetxattr fails with this errno value; 0: it works
extern int g_factsAttempts;  // fsetxattr calls so far
extern int g_sharedLockDelayUs;  // a shared flock waits so long first

namespace hardening {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // their allocators keep freed memory: no measure of growth
#else
constexpr bool kSanitized = false;
#endif

long openDescriptors();  // the listing's own descriptor included
// The process's descriptors whose link reads `target`, e.g. "anon_inode:inotify".
int descriptorsLeadingTo(const std::string& target, int pid = 0);
bool setSoftLimit(int resource, unsigned long value);
// The process's threads named `name`.
int threadsNamed(const std::string& name);

}  // namespace hardening

#endif  // QEL_TESTS_HARDENING_STAND_INS_H_
