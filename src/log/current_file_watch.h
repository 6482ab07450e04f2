#ifndef QEL_LOG_CURRENT_FILE_WATCH_H_
#define QEL_LOG_CURRENT_FILE_WATCH_H_

#include <sys/types.h>

#include <string>
#include <vector>

namespace qel {

// Tells the file writer, once per record, whether the name of its current file still leads
// to the file it has open: not when the file was deleted or renamed, its name taken again by
// anything (a file, a symbolic link, a folder), its folder or an ancestor folder renamed or
// removed, or, for a relative name, the working directory changed so that the name leads
// elsewhere. The test compares the identity (device and inode) of the open file with that of
// what the name leads to now, never following a symbolic link at the name.
//
// Walking the path on every record is the costly part of that test. For an absolute name on
// a local file system the watch asks the kernel to report changes instead (inotify: the
// folder's entry of the file, and every folder on the path being renamed or removed), reads
// the report without blocking on every record, and walks the path only when something was
// reported or the report overflowed. Where that is not possible (a relative name, a file
// system that does not report changes made by other hosts, no instance or watch left within
// the user's limits) the path is walked on every record.
//
// Not thread-safe: the file writer calls it under its own lock. One instance per process (the
// file writer's); a child made by fork makes its own.
class CurrentFileWatch {
public:
    CurrentFileWatch();
    ~CurrentFileWatch();
    CurrentFileWatch(const CurrentFileWatch&) = delete;
    CurrentFileWatch& operator=(const CurrentFileWatch&) = delete;

    // The file open as `descriptor` under `path` becomes the current file.
    void watch(int descriptor, const std::string& path);
    // The current file is closed: nothing is watched until the next watch().
    void stop();
    // True when `path` no longer leads to the current file (see above). Called once per
    // record; costs no path walk while nothing has changed on a watched path.
    bool replaced();
    // In a child made by fork, from the fork handler: lets go of the instance shared with the
    // parent without touching it (its reports belong to the parent). Async-signal-safe.
    void forgetInChild();

private:
    struct FolderWatch {
        int descriptor;     // the watch descriptor of one folder on the path
        std::string entry;  // the name whose changes count in it; empty: only its own move
    };

    // Watches every folder of the absolute m_path; false when the kernel cannot report the
    // changes there. Drops every report queued before.
    bool arm();
    // Makes the inotify instance and the epoll instance that tells when it has reports;
    // false, with neither, when the kernel refuses one.
    bool open();
    void close();
    void removeWatches();
    // Reads what the kernel reported since the last call; true when it may concern the path.
    bool changeReported();
    // lstat of the name against the open file's identity.
    bool identityChanged() const;

    int m_instance;   // the inotify descriptor; -1 before the first use or after a failure
    int m_readiness;  // an epoll descriptor watching m_instance, or -1 with it
    std::vector<FolderWatch> m_folders;
    std::string m_path;
    dev_t m_device;
    ino_t m_inode;
    bool m_watching;  // changes of m_path are reported by m_folders
    bool m_checkDue;  // the next replaced() walks the path whatever was reported
};

}  // namespace qel

#endif  // QEL_LOG_CURRENT_FILE_WATCH_H_
