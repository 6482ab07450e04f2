// The current log file taken away while the writer has it open, in every way a person or a
// tool can: the record before stays in the file it was written to, the next record goes into a
// new file at the folder's path, never into the file that is gone, never through whatever took
// its name.

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>
#include <iostream>

#include "hardening/stand_ins.h"
#include "log/current_file_watch.h"

using namespace qeltest;

namespace {

const char* const kModes[] = {"delete", "rename", "create", "file", "link", "folder",
                              "folder-moved", "folder-removed", "ancestor-moved", "mounted",
                              "unmounted", "queue-overflow"};

// Takes the current file `file` of the folder `logs`, which lies in `top`, away as `mode` says.
bool takeAway(const std::string& mode, const std::string& top, const std::string& logs,
              const std::string& file) {
    const char* name = file.c_str();
    if (mode == "delete") return unlink(name) == 0;
    if (mode == "rename") return rename(name, (file + ".1").c_str()) == 0;
    if (mode == "create" || mode == "file") {  // "create": what logrotate does
        if ((mode == "create" ? rename(name, (file + ".1").c_str()) : unlink(name)) != 0) {
            return false;
        }
        writeFile(file, mode == "file" ? "planted" : "");
        return access(name, F_OK) == 0;
    }
    if (mode == "link") return unlink(name) == 0 && symlink("../../victim", name) == 0;
    if (mode == "folder") return unlink(name) == 0 && mkdir(name, 0755) == 0;
    if (mode == "folder-moved") return rename(logs.c_str(), (logs + "-old").c_str()) == 0;
    if (mode == "folder-removed") {
        removeTree(logs);
        return true;
    }
    if (mode == "ancestor-moved") return rename(top.c_str(), (top + "-old").c_str()) == 0;
    // A file system mounted over the folder, or unmounted (lazily, as the writer holds a file
    // on it), so that the path shows another folder.
    if (mode == "mounted") return mount("tmpfs", logs.c_str(), "tmpfs", 0, nullptr) == 0;
    if (mode == "unmounted") return umount2(logs.c_str(), MNT_DETACH) == 0;
    // More changes in the folder than the kernel queues for a watch, then the delete, whose
    // own report is lost in the overflow.
    const int queued = std::stoi(readFile("/proc/sys/fs/inotify/max_queued_events"));
    const std::string one = logs + "/one", other = logs + "/other";
    writeFile(one, "");
    bool moved = true;
    for (int i = 0; i <= queued / 2 && moved; ++i) {
        const std::string& from = i % 2 ? other : one;
        moved = rename(from.c_str(), (i % 2 ? one : other).c_str()) == 0;
    }
    return moved && unlink(name) == 0;
}

// Another descriptor can lock `path` exclusively: no writer holds it.
bool lockable(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool locked = descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) == 0;
    close(descriptor);
    return locked;
}

// `instances`: how many inotify instances the user has left (-1: plenty).
ChildResult eachWayAway(int instances) {
    return runChild([instances] {
        g_inotifyInstances = instances;
        close(STDIN_FILENO);  // no descriptor of the library may take its place
        const std::string cwd = std::filesystem::current_path();
        writeFile("victim", "victim");
        CHILD_CHECK(mkdir("moved", 0755) == 0);
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        // The default folder is relative: after a change of the working directory the next
        // record starts a new file in the new one.
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        CHILD_CHECK(qelLogSimplify("gone", QEL_LOG_INFO, "in-first") == 0);
        CHILD_CHECK(chdir("moved") == 0);
        CHILD_CHECK(qelLogSimplify("gone", QEL_LOG_INFO, "in-moved") == 0 && chdir("..") == 0);
        CHILD_CHECK(concatenatedLogs(".").find("]in-first\n\n") != std::string::npos);
        CHILD_CHECK(countOf(concatenatedLogs("moved"), "]in-moved\n") == 1);

        // Mounting needs a mount namespace of the child's own (and CAP_SYS_ADMIN).
        const bool mounts = unshare(CLONE_NEWNS) == 0 &&
                            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        for (const std::string mode : kModes) {
            const std::string top = cwd + "/" + mode, logs = top + "/logs";
            if (mode.find("mounted") != std::string::npos && !mounts) {
                fprintf(stderr, "skipped: %s (mounting is not allowed here)\n", mode.c_str());
                continue;
            }
            CHILD_CHECK(mode != "unmounted" || (mkdir(top.c_str(), 0755) == 0 &&
                                                mkdir(logs.c_str(), 0755) == 0 &&
                                                mount("tmpfs", logs.c_str(), "tmpfs", 0, 0) == 0));
            CHILD_CHECK(qelLogSetFileFolder(logs.c_str()) == 0);
            CHILD_CHECK(qelLogSimplify("gone", QEL_LOG_INFO, ("before-" + mode).c_str()) == 0);
            CHILD_CHECK(logFiles(logs).size() == 1);
            const int before = open(logFiles(logs)[0].c_str(), O_RDONLY);
            CHILD_CHECK(takeAway(mode, top, logs, logFiles(logs)[0]));
            CHILD_CHECK(qelLogSimplify("gone", QEL_LOG_INFO, ("after-" + mode).c_str()) == 0);
            const std::string old = readFile("/proc/self/fd/" + std::to_string(before));
            close(before);
            if (countOf(old, "]before-" + mode + "\n") != 1 || countOf(old, "]after-") != 0 ||
                countOf(concatenatedLogs(logs), "]after-" + mode + "\n") != 1) {
                fprintf(stderr, "after %s the records are not in the old and a new file\n",
                        mode.c_str());
                return 1;
            }
        }
        CHILD_CHECK(readFile("victim") == "victim");
        const int watching = hardening::descriptorsLeadingTo("anon_inode:inotify");
        CHILD_CHECK(watching == (instances < 0 ? 1 : 0));
        CHILD_CHECK(open("/dev/null", O_RDONLY) == STDIN_FILENO);

        // The current file is locked shared, a finished one not. A child that never logs keeps
        // no hold on the file once the parent has moved on, and no descriptor of the watch.
        const std::string current = logFiles(cwd + "/queue-overflow/logs").back();
        CHILD_CHECK(!lockable(current) && lockable(logFiles(cwd + "/delete/logs").back()));
        int ready[2];
        CHILD_CHECK(pipe(ready) == 0);
        const pid_t idle = fork();
        if (idle == 0) _exit(write(ready[1], "r", 1) == 1 ? pause() : 1);
        char byte;
        CHILD_CHECK(read(ready[0], &byte, 1) == 1);  // past the fork handlers
        const int idleWatching = hardening::descriptorsLeadingTo("anon_inode:inotify", idle);
        CHILD_CHECK(qelLogSetFileFolder((cwd + "/moved").c_str()) == 0);
        const bool released = lockable(current);
        kill(idle, SIGKILL);
        CHILD_CHECK(waitpid(idle, nullptr, 0) == idle && released && idleWatching == 0);
        // Switched to walking the path, the writer lets go of its instance.
        CHILD_CHECK(qelLogConfigFileWatch(false) == 0);
        CHILD_CHECK(hardening::descriptorsLeadingTo("anon_inode:inotify") == 0);
        return 0;
    });
}

}  // namespace

TEST(ReplacedFileTest, EveryWayTheCurrentFileGoesSendsTheNextRecordIntoANewFile) {
    // The kernel reports changes on the path; then fewer instances are left than the writer
    // leaves to others: it takes none and walks the path.
    for (const int instances : {-1, qel::CurrentFileWatch::kSpareInstances}) {
        const ChildResult result = eachWayAway(instances);
        EXPECT_CHILD_OK(result);
        if (result.err.find("skipped: ") != std::string::npos) std::cout << result.err;
    }
}
