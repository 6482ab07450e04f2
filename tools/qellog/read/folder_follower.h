#ifndef QELLOG_READ_FOLDER_FOLLOWER_H_
#define QELLOG_READ_FOLDER_FOLLOWER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "follow_state.h"
#include "log_file.h"
#include "plan.h"
#include "read_warning.h"
#include "record_reader.h"

namespace qellog {

// Milliseconds on a clock that never goes back.
long long monotonicMs();

// Follows the log files of one folder while writers add to them, one pass at a time. Each pass
// lists the folder once, reads what is new in every file, and hands out each record once it is
// complete: when the next header follows it, when it ends with its empty line and its file
// has not grown for kSettleMs, or at once when its file is full and a newer file starts with
// a header. A record split between files is joined with the rule of joinFiles, each new file
// decided when it is first seen. Prints nothing and waits for nothing: the caller runs the
// passes. Not copyable; one thread.
class FolderFollower {
public:
    // A record that ends with its empty line at the end of a file is taken as complete once the
    // file has not grown for this long: a text may itself hold an empty line, and a writer of
    // an older version may have pushed out only the part before it.
    static constexpr long kSettleMs = 200;

    // `clock` gives the time in milliseconds on a clock that never goes back.
    FolderFollower(const std::string& folder, RecordSink onRecord, WarningSink onWarning,
                   std::function<long long()> clock = monotonicMs);
    FolderFollower(const FolderFollower&) = delete;
    FolderFollower& operator=(const FolderFollower&) = delete;

    // Starts where a saved state says, before the first pass: a file it names from its offset
    // (unless another file has taken the name), and with `before` (the state file's earlier
    // format) every file with an older name as read to its end.
    void resume(const FollowState& state, const std::string& before);
    // One pass. `stopAsked` (when set) is asked as the pass goes: once it says so, no file is
    // taken up or read any further, and the records already read are handed out.
    void pass(const std::function<bool()>& stopAsked = nullptr);
    // Whether bytes are held that do not make a complete record yet.
    bool holding() const;
    // Milliseconds until the next held record may be taken as complete although its file has
    // not grown; -1 when no record is held or every held one may be taken already.
    long long msUntilSettled() const;
    // Per file, how far the records handed out so far go: what resume() takes in a later run.
    FollowState progress() const;

private:
    // One log file as the follower knows it.
    struct Tracked {
        LogFile file;               // as listed last; its size at least what was read
        FileShape shape;            // the head as first seen, the end as last read
        std::uint64_t printed = 0;  // where the next record starts, while no reader holds it
        std::int64_t refMs = 0;     // the time of the record before it (0: from the name)
        std::uint64_t read = 0;     // bytes handed to the reader
        std::unique_ptr<RecordReader> reader;  // the file's records not yet handed out
        std::string continuedBy;  // the file that continues its last record, which has the reader
        long long grewMs = 0;
        bool settled = false;  // its last record was taken as ended when it stopped growing
    };

    // Decides for each file of `files` (the folder as listed) not known yet which file it
    // continues, then takes them up and reads them.
    void takeUp(std::vector<LogFile> files, const std::function<bool()>& stopping);
    // Takes up a file not known yet; `before` is the file it continues (or null), `sizes` the
    // rotation sizes.
    void track(const LogFile& file, const FileShape& shape, Tracked* before,
               const std::set<std::uint64_t>& sizes);
    void startReader(Tracked& t);
    void read(Tracked& t);
    void emit(Tracked& t, DataEnd end);
    void forgetGone(const std::vector<LogFile>& files);

    std::string m_folder;
    RecordSink m_onRecord;
    WarningSink m_onWarning;
    std::function<long long()> m_clock;
    std::map<FileTime, Tracked> m_files;  // in the order of their names
    FollowState m_resumed;                // the state's entries not yet matched
    std::string m_resumedBefore;          // earlier format: files before it were read
};

}  // namespace qellog

#endif  // QELLOG_READ_FOLDER_FOLLOWER_H_
