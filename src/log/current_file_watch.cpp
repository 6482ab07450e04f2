#include "log/current_file_watch.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "log/log_file.h"

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

}  // namespace

CurrentFileWatch::CurrentFileWatch()
    : m_instance(-1),
      m_readiness(-1),
      m_mounts(-1),
      m_folderCount(0),
      m_name(m_path),
      m_device(0),
      m_inode(0),
      m_kernelReports(true),
      m_watching(false),
      m_checkDue(false) {
    m_path[0] = '\0';
}

CurrentFileWatch::~CurrentFileWatch() {
    release();
}

void CurrentFileWatch::useKernelReports(bool enabled) {
    m_kernelReports = enabled;
    if (!enabled) {
        release();  // from now on the path is walked before every write
    } else if (m_path[0] != '\0') {
        m_watching = true;  // armed at the next write
        m_checkDue = true;
    }
}

void CurrentFileWatch::watch(int descriptor, const char* path) {
    removeWatches();
    const size_t length = strnlen(path, sizeof(m_path) - 1);
    memcpy(m_path, path, length);
    m_path[length] = '\0';
    const char* slash = strrchr(m_path, '/');
    m_name = slash != nullptr ? slash + 1 : m_path;
    struct stat status;
    if (fstat(descriptor, &status) != 0 && lstat(m_path, &status) != 0) {
        status.st_dev = 0;
        status.st_ino = 0;
    }
    m_device = status.st_dev;
    m_inode = status.st_ino;
    // The watches are made at the first write, with the first walk of the path.
    m_watching = true;
    m_checkDue = true;
}

void CurrentFileWatch::stop() {
    removeWatches();
    m_watching = false;
}

void CurrentFileWatch::release() {
    stop();
    for (int* descriptor : {&m_instance, &m_readiness, &m_mounts}) {
        if (*descriptor >= 0) {
            ::close(*descriptor);  // the watches go with the instance's last descriptor
        }
        *descriptor = -1;
    }
}

bool CurrentFileWatch::replaced() {
    if (m_watching) {
        if (!m_checkDue && !changeReported()) {
            return false;
        }
        // Something changed on the path, or nothing is known yet: watch what the path is
        // made of now (a folder may have been exchanged, a file system mounted), dropping what
        // was reported; the walk below sees every change made before, the watches every one
        // made after.
        m_watching = arm();
    }
    m_checkDue = false;
    return identityChanged();
}

void CurrentFileWatch::forgetInChild() {
    // Removing a watch or reading a report would take it from the parent.
    m_folderCount = 0;
    release();
}

bool CurrentFileWatch::arm() {
    removeWatches();
    // A relative name depends on the working directory, which no watch reports on: it is
    // walked before every write, which is as short a walk as a check of the working directory.
    if (!m_kernelReports || m_path[0] != '/') {
        return false;
    }
    if (m_instance < 0 && !open()) {
        return false;  // instances too few to take one, or no inotify at all
    }
    // Every folder from the root down, each the part of the path before one of its '/': each
    // must be a folder, not a symbolic link (a link's new target would go unreported), on a
    // file system that reports every change.
    for (size_t slash = 0; m_path + slash < m_name; slash += 1 + strcspn(m_path + slash + 1, "/")) {
        const char* part = m_path + slash + 1;
        const size_t partLength = strcspn(part, "/");
        if (partLength == 0) {
            continue;  // "//"
        }
        const bool fileFolder = part == m_name;
        const bool dots = (partLength == 1 && part[0] == '.') ||
                          (partLength == 2 && part[0] == '.' && part[1] == '.');
        // The folder's path: m_path cut at this '/', or the root.
        const char kept = m_path[slash == 0 ? 1 : slash];
        m_path[slash == 0 ? 1 : slash] = '\0';
        struct stat status;
        const int descriptor =
            !dots && m_folderCount < kMaxFolders && lstat(m_path, &status) == 0 &&
                    S_ISDIR(status.st_mode) && reportsEveryChange(m_path)
                ? inotify_add_watch(m_instance, m_path,
                                    fileFolder ? kSelfEvents | kEntryEvents : kSelfEvents)
                : -1;
        m_path[slash == 0 ? 1 : slash] = kept;
        if (descriptor < 0) {
            removeWatches();  // max_user_watches used up, or a folder as above
            return false;
        }
        m_folders[m_folderCount++] = descriptor;
    }
    alignas(struct inotify_event) char reports[4096];
    while (read(m_instance, reports, sizeof(reports)) > 0) {
    }
    return m_folderCount > 0;
}

bool CurrentFileWatch::open() {
    m_instance = aboveStandardStreams(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    // The instances the others may still need, made and given back at once.
    int spare[kSpareInstances];
    int made = 0;
    while (m_instance >= 0 && made < kSpareInstances &&
           (spare[made] = inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) >= 0) {
        ++made;
    }
    for (int i = 0; i < made; ++i) {
        ::close(spare[i]);
    }
    if (made == kSpareInstances) {
        m_readiness = aboveStandardStreams(epoll_create1(EPOLL_CLOEXEC));
        m_mounts = aboveStandardStreams(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
        struct epoll_event reported = {};
        reported.events = EPOLLIN;
        reported.data.fd = m_instance;
        struct epoll_event mounted = {};
        mounted.events = EPOLLPRI;  // the mount table changed since it was last looked at
        mounted.data.fd = m_mounts;
        if (m_readiness >= 0 && m_mounts >= 0 &&
            epoll_ctl(m_readiness, EPOLL_CTL_ADD, m_instance, &reported) == 0 &&
            epoll_ctl(m_readiness, EPOLL_CTL_ADD, m_mounts, &mounted) == 0) {
            return true;
        }
    }
    release();
    return false;
}

void CurrentFileWatch::removeWatches() {
    for (size_t i = 0; i < m_folderCount; ++i) {
        inotify_rm_watch(m_instance, m_folders[i]);
    }
    m_folderCount = 0;
}

bool CurrentFileWatch::changeReported() {
    // The system call itself, not the C library's wrapper, which makes it a point where the
    // thread may be cancelled: this is only a look, made once per record.
    struct epoll_event ready[2];
    const int count = static_cast<int>(syscall(SYS_epoll_wait, m_readiness, ready, 2, 0));
    if (count <= 0) {
        return count < 0;  // a failure leaves the reports unknown
    }
    bool changed = false;
    for (int i = 0; i < count; ++i) {
        changed |= ready[i].data.fd == m_mounts;
    }
    // Every report is read, so that the instance stops being ready.
    alignas(struct inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t got = read(m_instance, buffer, sizeof(buffer));
        if (got <= 0) {
            // Nothing more to read; any other failure leaves the reports unknown.
            return changed || (got < 0 && errno != EAGAIN);
        }
        for (ssize_t at = 0; at < got;) {
            const auto* event = reinterpret_cast<const struct inotify_event*>(buffer + at);
            at += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
            changed |= (event->mask & IN_Q_OVERFLOW) != 0;
            for (size_t folder = 0; folder < m_folderCount; ++folder) {
                // A folder's own move or removal, or a change of the file's entry in its
                // folder (the last one watched). Reports of watches removed before
                // (IN_IGNORED) carry descriptors no longer here.
                changed |= m_folders[folder] == event->wd &&
                           (event->len == 0 ||
                            (folder + 1 == m_folderCount && strcmp(m_name, event->name) == 0));
            }
        }
    }
}

bool CurrentFileWatch::identityChanged() const {
    struct stat status;
    return lstat(m_path, &status) != 0 || status.st_dev != m_device || status.st_ino != m_inode;
}

}  // namespace qel
