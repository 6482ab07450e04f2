#include "folder_reader.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <iterator>
#include <utility>

#include "byte_source.h"
#include "plan.h"
#include "record_reader.h"
#include "writing_order.h"

namespace qellog {
namespace {

// The files that `paths` name, a folder's log files in the order they were written.
bool collectFiles(const std::vector<std::string>& paths, std::vector<LogFile>& files,
                  const WarningSink& onWarning) {
    bool ok = true;
    for (const std::string& path : paths) {
        struct stat status;
        if (path == kStandardInput) {
            files.push_back(logFileAt(path));
            files.back().name = kStandardInputName;
        } else if (stat(path.c_str(), &status) != 0) {
            onWarning({WarningKind::CannotRead, path, 0, std::strerror(errno)});
            ok = false;
        } else if (S_ISDIR(status.st_mode)) {
            std::vector<LogFile> found;
            std::string error;
            if (!listLogFiles(path, found, error, true)) {
                onWarning({WarningKind::CannotReadFolder, path, 0, error});
                ok = false;
            }
            orderByWriting(found, std::time(nullptr), onWarning);
            files.insert(files.end(), std::make_move_iterator(found.begin()),
                         std::make_move_iterator(found.end()));
        } else {
            files.push_back(logFileAt(path));
            statLogFile(files.back());
            files.back().facts = readRecordedFacts(path);
        }
    }
    return ok;
}

}  // namespace

bool readPaths(const std::vector<std::string>& paths, const RecordSink& onRecord,
               const WarningSink& onWarning, std::vector<LogFile>* read) {
    std::vector<LogFile> files;
    bool ok = collectFiles(paths, files, onWarning);
    std::vector<FileShape> shapes;
    for (LogFile& file : files) shapes.push_back(shapeOf(file));
    RecordReader reader;
    Record record;
    const auto drain = [&] {
        while (reader.next(record, DataEnd::More)) onRecord(record);
    };
    const auto guessed = [&](const LogFile& file, const std::vector<const LogFile*>& alike) {
        onWarning({WarningKind::Guessed, file.name, 0, guessText(alike)});
    };
    for (const PlannedFile& planned : planReading(files, shapes, guessed)) {
        const LogFile& file = files[planned.index];
        reader.beginFile(file, 0, planned.continues);
        if (readInto(file.path, 0, reader, drain) < 0) {
            onWarning({WarningKind::CannotRead, file.path, 0, sourceError(errno)});
            ok = false;
        }
    }
    while (reader.next(record, DataEnd::Final)) onRecord(record);
    if (read != nullptr) *read = std::move(files);
    return ok;
}

}  // namespace qellog
