#include "folder_follower.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "byte_source.h"
#include "writing_order.h"

namespace qellog {

long long monotonicMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

FolderFollower::FolderFollower(const std::string& folder, RecordSink onRecord,
                               WarningSink onWarning, std::function<long long()> clock)
    : m_folder(folder),
      m_onRecord(std::move(onRecord)),
      m_onWarning(std::move(onWarning)),
      m_clock(std::move(clock)) {}

void FolderFollower::resume(const FollowState& state, const std::string& before) {
    m_resumed = state;
    m_resumedBefore = before;
}

void FolderFollower::pass(const std::function<bool()>& stopAsked) {
    const auto stopping = [&] { return stopAsked && stopAsked(); };
    std::vector<LogFile> files;
    std::string error;
    if (!listLogFiles(m_folder, files, error)) files.clear();
    // The known files first: what they added since decides how the new ones join.
    bool fresh = false;
    for (const LogFile& file : files) {
        auto it = m_files.find(file.time);
        if (it != m_files.end() && it->second.file.inode != file.inode) {
            m_onWarning({WarningKind::Replaced, file.name, 0, ""});
            m_files.erase(it);
            it = m_files.end();
        }
        if (it == m_files.end()) {
            fresh = true;
            continue;
        }
        const RecordedFacts facts = it->second.file.facts;  // read when it was taken up
        it->second.file = file;
        it->second.file.facts = facts;
        if (!stopping()) read(it->second);  // a stop waits for no backlog
    }
    if (fresh && !stopping()) {
        // A listing made while writers create files may miss a file made during it and hold one
        // made after it: a second listing holds every file made before the first one ended, and
        // of its new files those named before the first listing's newest are taken now (the
        // others may miss files made before them, and wait for the next pass).
        std::vector<LogFile> again;
        std::set<std::string> listed;
        for (const LogFile& file : files) listed.insert(file.name);
        if (!files.empty() && listLogFiles(m_folder, again, error)) {
            const FileTime newest = files.back().time;
            for (const LogFile& file : again) {
                if (file.time < newest && listed.insert(file.name).second) files.push_back(file);
            }
        }
        takeUp(files, stopping);
    }
    forgetGone(files);
    for (auto& entry : m_files) {
        Tracked& t = entry.second;
        emit(t, DataEnd::More);
        if (t.reader != nullptr && t.reader->pending() > 0 &&
            m_clock() - t.grewMs >= kSettleMs) {
            emit(t, DataEnd::Quiet);
        }
        if (t.reader != nullptr && t.reader->pending() == 0 && t.continuedBy.empty()) {
            // Nothing held: keep the place, not the reader.
            std::string refFile;
            t.printed = t.reader->position().offset;
            t.reader->reference(refFile, t.refMs);
            if (refFile != t.file.name) t.refMs = 0;
            t.read = t.printed;
            t.reader.reset();
        }
    }
}

void FolderFollower::takeUp(std::vector<LogFile> files, const std::function<bool()>& stopping) {
    // Every file as cat reads it: with its facts, its shape, in the order of writing. A file
    // not known yet is read as it is now; an empty one cannot be placed yet and is decided once
    // it holds bytes, by then with all its facts (the writer sets them before the first byte).
    std::set<std::string> listed;
    for (const LogFile& file : files) listed.insert(file.name);
    std::map<std::string, FileShape> fresh;
    for (LogFile& file : files) {
        const auto known = m_files.find(file.time);
        if (known != m_files.end()) {
            file = known->second.file;
            continue;
        }
        fresh[file.name] = shapeOf(file);
        if (file.size > 0) file.facts = readRecordedFacts(file.path);
    }
    // A file whose recorded link names a file not listed yet (or one that waits) waits for the
    // next pass.
    for (bool more = true; more;) {
        more = false;
        for (auto it = files.begin(); it != files.end(); ++it) {
            const std::string& link = it->facts.continues;
            if (!link.empty() && listed.count(link) == 0 &&
                access(pathIn(m_folder, link).c_str(), F_OK) == 0) {
                listed.erase(it->name);
                files.erase(it);
                more = true;
                break;
            }
        }
    }
    orderByWriting(files, 0, [](const ReadWarning&) {});
    std::vector<FileShape> shapes(files.size());
    std::vector<long> continues(files.size(), kContinuesNone);
    std::vector<bool> continued(files.size(), false);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const auto known = m_files.find(files[i].time);
        if (known == m_files.end()) {
            shapes[i] = fresh[files[i].name];
            if (files[i].size > 0) continues[i] = kUndecided;
            continue;
        }
        const Tracked& t = known->second;
        shapes[i] = t.shape;
        continued[i] = !t.continuedBy.empty();
        if (!continued[i] && t.shape.endsInside && t.read >= t.file.size) {
            // Its end as it is now: which threads wrote last, for a headless file to come.
            LogFile now = t.file;
            shapes[i].tailThreads = shapeOf(now).tailThreads;
        }
    }
    joinFiles(files, shapes, continues, continued,
              [this](const LogFile& file, const std::vector<const LogFile*>& alike) {
                  m_onWarning({WarningKind::Guessed, file.name, 0, guessText(alike)});
              });
    const std::set<std::uint64_t> sizes = rotationSizes(files, shapes);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (fresh.count(files[i].name) == 0 || files[i].size == 0 || stopping()) continue;
        const auto before =
            continues[i] >= 0 ? m_files.find(files[continues[i]].time) : m_files.end();
        track(files[i], shapes[i], before != m_files.end() ? &before->second : nullptr, sizes);
        read(m_files[files[i].time]);
    }
}

void FolderFollower::track(const LogFile& file, const FileShape& shape, Tracked* before,
                           const std::set<std::uint64_t>& sizes) {
    Tracked tracked;
    tracked.file = file;
    tracked.shape = shape;
    tracked.grewMs = m_clock();
    const auto resumed = m_resumed.find(file.name);
    if (resumed != m_resumed.end() &&
        (resumed->second.inode == file.inode || resumed->second.inode == 0)) {
        tracked.printed = std::min(resumed->second.offset, file.size);
        tracked.refMs = resumed->second.refMs;
    } else if (!m_resumedBefore.empty() && file.time < logFileAt(m_resumedBefore).time) {
        tracked.printed = file.size;  // read by a run of the earlier state format
    } else if (before != nullptr) {
        if (before->reader == nullptr) startReader(*before);
        tracked.reader = std::move(before->reader);
        tracked.reader->beginFile(file, 0, true);
        before->continuedBy = file.name;
    } else if (file.facts.present) {
        // The writer's file before this one grows no more: a record at its end that ends with
        // its empty line is complete now, not after the settle time.
        for (auto& entry : m_files) {
            Tracked& last = entry.second;
            if (last.file.facts.writer == file.facts.writer &&
                last.file.facts.number + 1 == file.facts.number && last.reader != nullptr &&
                !last.reader->endsInside()) {
                emit(last, DataEnd::Quiet);
            }
        }
    } else if (!shape.headless && m_files.lower_bound(file.time) != m_files.begin()) {
        // So does a full file before a new one that starts a record, by the names.
        Tracked& last = std::prev(m_files.lower_bound(file.time))->second;
        if (last.reader != nullptr && !last.reader->endsInside() &&
            sizes.count(last.file.size) > 0) {
            emit(last, DataEnd::Quiet);
        }
    }
    m_files[file.time] = std::move(tracked);
}

void FolderFollower::startReader(Tracked& t) {
    t.reader.reset(new RecordReader);
    t.reader->beginFile(t.file, t.printed, false);
    if (t.refMs != 0) t.reader->setReference(t.file.name, t.refMs);
    t.read = t.printed;
}

void FolderFollower::read(Tracked& t) {
    if (!t.continuedBy.empty() || t.file.size <= std::max(t.read, t.printed)) return;
    if (t.reader == nullptr) startReader(t);
    // The writer adds a zone line before the first record stamped under a new offset.
    std::vector<ZoneRule> zones;
    if (t.file.facts.present && readZoneRules(t.file.path, zones) &&
        zones.size() != t.file.facts.zones.size()) {
        t.file.facts.zones = zones;
        t.reader->refreshFacts(t.file);
    }
    const long long got = readInto(t.file.path, t.read, *t.reader, [&] { emit(t, DataEnd::More); });
    if (got > 0) {
        t.read += static_cast<std::uint64_t>(got);
        t.file.size = std::max(t.file.size, t.read);
        t.shape.endsInside = t.reader->endsInside();
        t.grewMs = m_clock();
    }
}

void FolderFollower::emit(Tracked& t, DataEnd end) {
    if (t.reader == nullptr) return;
    Record record;
    bool any = false;
    while (t.reader->next(record, end)) {
        if (t.settled && !record.headed && !record.zeros) {
            m_onWarning({WarningKind::EndGuessed, record.file, record.offset, ""});
        }
        t.settled = false;
        m_onRecord(record);
        any = true;
    }
    if (end == DataEnd::Quiet && any && t.reader->pending() == 0) t.settled = true;
}

void FolderFollower::forgetGone(const std::vector<LogFile>& files) {
    std::set<std::string> listed;
    for (const LogFile& file : files) listed.insert(file.name);
    for (auto it = m_files.begin(); it != m_files.end();) {
        const Tracked& t = it->second;
        if (listed.count(t.file.name) > 0) {
            ++it;
            continue;
        }
        if (t.continuedBy.empty() &&
            (t.read < t.file.size || (t.reader != nullptr && t.reader->pending() > 0))) {
            m_onWarning({WarningKind::GoneUnread, t.file.name, 0, ""});
        }
        it = m_files.erase(it);
    }
}

bool FolderFollower::holding() const {
    for (const auto& entry : m_files) {
        const Tracked& t = entry.second;
        if (t.reader != nullptr && t.reader->pending() > 0) return true;
    }
    return false;
}

long long FolderFollower::msUntilSettled() const {
    const long long now = m_clock();
    long long until = -1;
    for (const auto& entry : m_files) {
        const Tracked& t = entry.second;
        if (t.reader == nullptr || t.reader->pending() == 0) continue;
        const long long left = t.grewMs + kSettleMs - now;
        if (left >= 0 && (until < 0 || left < until)) until = left;
    }
    return until;
}

FollowState FolderFollower::progress() const {
    FollowState state;
    for (const auto& entry : m_files) {
        const Tracked& t = entry.second;
        if (t.reader == nullptr) {
            const std::uint64_t printed = t.continuedBy.empty() ? t.printed : t.file.size;
            if (printed > 0) state[t.file.name] = {t.file.inode, printed, t.refMs};
        }
    }
    for (const auto& entry : m_files) {
        const Tracked& t = entry.second;
        if (t.reader == nullptr) continue;
        // The files from the one where the next record starts on hold bytes not handed out
        // yet: the first at that record, the others not at all (a resumed run joins them).
        const Position at = t.reader->position();
        std::string refFile;
        std::int64_t refMs = 0;
        t.reader->reference(refFile, refMs);
        for (auto it = m_files.find(logFileAt(at.file).time); it != m_files.end();
             it = m_files.find(logFileAt(it->second.continuedBy).time)) {
            state.erase(it->second.file.name);
        }
        const auto first = m_files.find(logFileAt(at.file).time);
        if (first != m_files.end() && at.offset > 0) {
            state[at.file] = {first->second.file.inode, at.offset, refFile == at.file ? refMs : 0};
        }
    }
    return state;
}

}  // namespace qellog
