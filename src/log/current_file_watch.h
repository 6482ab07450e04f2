#ifndef QEL_LOG_CURRENT_FILE_WATCH_H_
#define QEL_LOG_CURRENT_FILE_WATCH_H_

#include <limits.h>
#include <sys/types.h>

#include <cstddef>

namespace qel {

// Tells the file writer, before each write, whether the name of its current file still leads
// to the file it has open: not when the file was deleted or renamed, its name taken again by
// anything (a file, a symbolic link, a folder), its folder or an ancestor folder renamed or
// removed, a file system mounted or unmounted over the folder or an ancestor, or, for a
// relative name, the working directory changed so that the name leads elsewhere. The test
// compares the identity (device and inode) of the open file with that of what the name leads
// to now, never following a symbolic link at the name.
//
// Walking the path before every write is the costly part of that test. For an absolute name
// on a local file system the watch asks the kernel to report changes instead (inotify: the
// folder's entry of the file, and every folder on the path being renamed or removed; and the
// process's mount table, /proc/self/mountinfo, for mounts), asks without blocking whether
// anything was reported (one epoll_wait), and walks the path only when something was. Where
// that is not possible (a relative name, a file system that does not report changes made by
// other hosts, kernel reports switched off, no instance or watch left within the user's
// limits) the path is walked before every write.
//
// The user's inotify instances (fs.inotify.max_user_instances, 128 by default) are shared by
// every program of that user, and how many are in use cannot be asked. The watch takes one
// only while kSpareInstances more could still be made, found by making them and closing them
// at once, so that a logging process is never what keeps another program from getting one.
// It holds the instance, an epoll descriptor and the mount table open from the first write
// into a file until release().
//
// Not thread-safe: the file writer calls it under its own lock. Allocates no memory.
class CurrentFileWatch {
public:
    // Instances of the user's that must stay free for other programs.
    static constexpr int kSpareInstances = 8;

    CurrentFileWatch();
    ~CurrentFileWatch();  // release()
    CurrentFileWatch(const CurrentFileWatch&) = delete;
    CurrentFileWatch& operator=(const CurrentFileWatch&) = delete;

    // With `enabled` false no kernel reports are used (nor their descriptors held): the path
    // is walked before every write. On by default.
    void useKernelReports(bool enabled);
    // The file open as `descriptor` under `path` becomes the current file.
    void watch(int descriptor, const char* path);
    // The current file is closed: nothing is watched until the next watch(). The descriptors
    // stay for the next file.
    void stop();
    // The file writer is off: stop(), and every descriptor of the watch is closed.
    void release();
    // True when the path no longer leads to the current file (see above). Called before each
    // write; costs no path walk while nothing has changed on a watched path.
    bool replaced();
    // In a child made by fork, from the fork handler: lets go of the descriptors shared with
    // the parent without touching them (their reports belong to the parent).
    // Async-signal-safe.
    void forgetInChild();

private:
    // Deep enough for any real log folder; a deeper one is walked before every write.
    static constexpr size_t kMaxFolders = 32;

    // Watches every folder of the absolute m_path; false when the kernel cannot report the
    // changes there. Drops every report queued before.
    bool arm();
    // Makes the inotify instance, the epoll instance that tells when anything was reported and
    // the mount table's descriptor; false, with none of them, when one cannot be had.
    bool open();
    void removeWatches();
    // Reads what was reported since the last call; true when it may concern the path.
    bool changeReported();
    // lstat of the name against the open file's identity.
    bool identityChanged() const;

    int m_instance;   // the inotify descriptor, or -1
    int m_readiness;  // an epoll descriptor watching m_instance and m_mounts, or -1 with them
    int m_mounts;     // /proc/self/mountinfo, or -1 with the others
    int m_folders[kMaxFolders];  // watch descriptors, from the root down to the file's folder
    size_t m_folderCount;
    char m_path[PATH_MAX];
    const char* m_name;  // the file's name within m_path
    dev_t m_device;
    ino_t m_inode;
    bool m_kernelReports;  // useKernelReports()
    bool m_watching;       // changes of m_path are reported by m_folders
    bool m_checkDue;       // the next replaced() walks the path whatever was reported
};

}  // namespace qel

#endif  // QEL_LOG_CURRENT_FILE_WATCH_H_
