#include "tools/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

namespace {

void closeIfOpen(int& fd) {
    if (fd >= 0) {
        close(fd);
        fd = -1;
    }
}

}  // namespace

ChildResult runChild(const std::string& program, const std::vector<std::string>& args,
                     const std::string& directory, const std::string& input) {
    ChildResult result;
    int in[2], out[2], err[2];
    if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) {
        ADD_FAILURE() << "pipe: " << std::strerror(errno);
        return result;
    }
    // Everything the child needs is made before fork: after it only exec-safe calls follow.
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    // A child that exits before reading all its input must not kill the test with SIGPIPE.
    signal(SIGPIPE, SIG_IGN);

    result.pid = fork();
    if (result.pid == 0) {
        signal(SIGPIPE, SIG_DFL);  // an ignored signal would stay ignored across exec
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) {
            close(fd);
        }
        if (chdir(directory.c_str()) == 0) {
            execv(program.c_str(), argv.data());
        }
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    if (result.pid < 0) {
        ADD_FAILURE() << "fork: " << std::strerror(errno);
        close(in[1]), close(out[0]), close(err[0]);
        return result;
    }

    // Feed and drain at once, so that neither side blocks on a full pipe.
    int toChild = in[1], fromOut = out[0], fromErr = err[0];
    fcntl(toChild, F_SETFL, O_NONBLOCK);
    std::size_t written = 0;
    if (input.empty()) closeIfOpen(toChild);
    while (fromOut >= 0 || fromErr >= 0) {
        pollfd fds[3] = {{fromOut, POLLIN, 0}, {fromErr, POLLIN, 0}, {toChild, POLLOUT, 0}};
        if (poll(fds, 3, -1) < 0) {
            if (errno == EINTR) continue;
            ADD_FAILURE() << "poll: " << std::strerror(errno);
            break;
        }
        if (fds[2].revents != 0) {
            const ssize_t n = write(toChild, input.data() + written, input.size() - written);
            if (n > 0) written += static_cast<std::size_t>(n);
            if (n < 0 && errno != EAGAIN) closeIfOpen(toChild);  // the child closed its end
            if (written == input.size()) closeIfOpen(toChild);
        }
        int* readers[2] = {&fromOut, &fromErr};
        std::string* sinks[2] = {&result.out, &result.err};
        for (int i = 0; i < 2; ++i) {
            if (fds[i].revents == 0) continue;
            char chunk[65536];
            const ssize_t n = read(*readers[i], chunk, sizeof(chunk));
            if (n > 0) {
                sinks[i]->append(chunk, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                closeIfOpen(*readers[i]);
            }
        }
    }
    closeIfOpen(toChild);

    int status = 0;
    while (waitpid(result.pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}
