#ifndef QEL_TESTS_TOOLS_CHILD_PROCESS_H_
#define QEL_TESTS_TOOLS_CHILD_PROCESS_H_

#include <sys/types.h>

#include <string>
#include <vector>

// What a finished child process left behind.
struct ChildResult {
    pid_t pid = -1;     // its process id, which is also the kernel id of its main thread
    int exitCode = -1;  // the exit status, or 128 + the signal that ended it
    std::string out;    // everything it wrote on standard output
    std::string err;    // everything it wrote on standard error
};

// Runs `program` with `args` in `directory`, feeds it `input` on standard input (then end of
// input) and collects both output streams until it exits. Fails the running test, and returns
// an exit code of -1, when the child cannot be started.
ChildResult runChild(const std::string& program, const std::vector<std::string>& args,
                     const std::string& directory, const std::string& input);

#endif  // QEL_TESTS_TOOLS_CHILD_PROCESS_H_
