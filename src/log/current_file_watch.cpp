#include "log/current_file_watch.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cstdint>

namespace qel {

namespace {

// What the kernel reports about an open file and the folders above it (inotify):
// - unlink of the open file: IN_DELETE with its name in its folder and IN_ATTRIB (the link
//   count) on the file at once; IN_DELETE_SELF only at the last close, so never while the
//   writer holds it open. A hard link elsewhere leaves the name alone; unlinking the name
//   afterwards raises the same IN_DELETE.
// - rename of the file: IN_MOVED_FROM with its name in its folder; a file or link renamed
//   onto the name: IN_MOVED_TO; anything created at the name: IN_CREATE.
// - rename of the folder or of any ancestor: IN_MOVE_SELF on that folder's own watch only,
//   nothing on the folders below it; its removal needs the file gone first (IN_DELETE).
// So the folder is watched for its entry of the file and for its own move, and every
// ancestor for its own move. A folder can not be renamed over a folder that is not empty,
// nor a file over a folder, so the folders on the path can only move or go after the file.
constexpr uint32_t kSelfEvents = IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW;
constexpr uint32_t kEntryEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

// File systems all of whose changes pass through this kernel, so that a watch sees every one
// (ext2/3/4, XFS, Btrfs, F2FS, tmpfs, ramfs, overlay, FAT, exFAT, JFFS2, UBIFS, ZFS,
// bcachefs, ReiserFS, NILFS). Network and cluster file systems (NFS, SMB, FUSE, 9P, Ceph, ...)
// are changed by other hosts without a report here, and anything unknown counts as such.
bool reportsEveryChange(const char* folder) {
    static const uint32_t kLocalTypes[] = {
        0xEF53,     0x58465342, 0x9123683E, 0xF2F52010, 0x01021994, 0x858458F6,
        0x794C7630, 0x4D44,     0x2011BAB0, 0x72B6,     0x24051905, 0x2FC12FC1,
        0xCA451A4E, 0x52654973, 0x3434};
    struct statfs system;
    if (statfs(folder, &system) != 0) {
        return false;
    }
    for (const uint32_t type : kLocalTypes) {
        if (static_cast<uint32_t>(system.f_type) == type) {
            return true;
        }
    }
    return false;
}

// A process that closed a standard stream must not find the watch's descriptor where its
// console output or its next open goes.
int aboveStandardStreams(int descriptor) {
    if (descriptor < 0 || descriptor > STDERR_FILENO) {
        return descriptor;
    }
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    ::close(descriptor);
    return moved;
}

}  // namespace

CurrentFileWatch::CurrentFileWatch()
    : m_instance(-1),
      m_readiness(-1),
      m_device(0),
      m_inode(0),
      m_watching(false),
      m_checkDue(false) {}

CurrentFileWatch::~CurrentFileWatch() {
    close();
}

void CurrentFileWatch::watch(int descriptor, const std::string& path) {
    removeWatches();
    m_path = path;
    struct stat status;
    if (fstat(descriptor, &status) != 0 && lstat(path.c_str(), &status) != 0) {
        status.st_dev = 0;
        status.st_ino = 0;
    }
    m_device = status.st_dev;
    m_inode = status.st_ino;
    // The watches are made at the first record, with the first walk of the path.
    m_watching = true;
    m_checkDue = true;
}

void CurrentFileWatch::stop() {
    removeWatches();
    m_watching = false;
}

bool CurrentFileWatch::replaced() {
    if (m_watching) {
        if (!m_checkDue && !changeReported()) {
            return false;
        }
        // Something changed on the path, or nothing is known yet: watch what the path is
        // made of now (a folder may have been exchanged), dropping what was reported; the walk
        // below sees every change made before, the watches every one made after.
        m_watching = arm();
    }
    m_checkDue = false;
    return identityChanged();
}

void CurrentFileWatch::forgetInChild() {
    // Removing a watch or reading a report would take it from the parent.
    close();
    m_watching = false;
}

bool CurrentFileWatch::arm() {
    removeWatches();
    // A relative name depends on the working directory, which no watch reports on: it is
    // walked per record, which is as short a walk as a check of the working directory.
    if (m_path.empty() || m_path[0] != '/') {
        return false;
    }
    if (m_instance < 0 && !open()) {
        return false;  // max_user_instances used up, or no inotify at all
    }
    // Every folder from the root down: each must be a folder, not a symbolic link (a link's
    // new target would go unreported), on a file system that reports every change.
    for (size_t slash = 0; slash != std::string::npos; slash = m_path.find('/', slash + 1)) {
        const size_t next = m_path.find('/', slash + 1);
        const std::string part =
            m_path.substr(slash + 1, next == std::string::npos ? next : next - slash - 1);
        if (part.empty()) {
            continue;  // "//"
        }
        const std::string folder = slash == 0 ? "/" : m_path.substr(0, slash);
        const bool isFileFolder = next == std::string::npos;
        struct stat status;
        const int descriptor =
            part != "." && part != ".." && lstat(folder.c_str(), &status) == 0 &&
                    S_ISDIR(status.st_mode) && reportsEveryChange(folder.c_str())
                ? inotify_add_watch(m_instance, folder.c_str(),
                                    isFileFolder ? kSelfEvents | kEntryEvents : kSelfEvents)
                : -1;
        if (descriptor < 0) {
            removeWatches();  // max_user_watches used up, or a folder as above
            return false;
        }
        m_folders.push_back({descriptor, isFileFolder ? part : std::string()});
    }
    alignas(struct inotify_event) char reports[4096];
    while (read(m_instance, reports, sizeof(reports)) > 0) {
    }
    return !m_folders.empty();
}

// An epoll instance tells whether a report is queued for the cost of a bare system call; a
// read of the inotify descriptor that finds nothing costs about twice as much.
bool CurrentFileWatch::open() {
    m_instance = aboveStandardStreams(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    m_readiness = aboveStandardStreams(epoll_create1(EPOLL_CLOEXEC));
    struct epoll_event readable = {};
    readable.events = EPOLLIN;
    if (m_instance >= 0 && m_readiness >= 0 &&
        epoll_ctl(m_readiness, EPOLL_CTL_ADD, m_instance, &readable) == 0) {
        return true;
    }
    close();
    return false;
}

void CurrentFileWatch::close() {
    for (int* descriptor : {&m_instance, &m_readiness}) {
        if (*descriptor >= 0) {
            ::close(*descriptor);  // the watches go with the last descriptor of the instance
        }
        *descriptor = -1;
    }
}

void CurrentFileWatch::removeWatches() {
    if (m_instance >= 0) {
        for (const FolderWatch& folder : m_folders) {
            inotify_rm_watch(m_instance, folder.descriptor);
        }
    }
    m_folders.clear();
}

bool CurrentFileWatch::changeReported() {
    struct epoll_event ready;
    if (epoll_wait(m_readiness, &ready, 1, 0) == 0) {
        return false;
    }
    alignas(struct inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t got = read(m_instance, buffer, sizeof(buffer));
        if (got <= 0) {
            // Nothing more to read; any other failure leaves the reports unknown.
            return got < 0 && errno != EAGAIN;
        }
        for (ssize_t at = 0; at < got;) {
            const auto* event = reinterpret_cast<const struct inotify_event*>(buffer + at);
            at += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
            if (event->mask & IN_Q_OVERFLOW) {
                return true;
            }
            for (const FolderWatch& folder : m_folders) {
                // A folder's own move or removal, or a change of the watched entry. Reports
                // of watches removed before (IN_IGNORED) carry descriptors no longer here.
                if (folder.descriptor == event->wd &&
                    (event->len == 0 || folder.entry == event->name)) {
                    return true;
                }
            }
        }
    }
}

bool CurrentFileWatch::identityChanged() const {
    struct stat status;
    return lstat(m_path.c_str(), &status) != 0 || status.st_dev != m_device ||
           status.st_ino != m_inode;
}

}  // namespace qel
