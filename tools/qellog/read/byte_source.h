#ifndef QELLOG_READ_BYTE_SOURCE_H_
#define QELLOG_READ_BYTE_SOURCE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "record_reader.h"

namespace qellog {

// Where the bytes of one log file come from, in order, from a start offset to their end (for
// a file: its end at the moment it is read). Not copyable; owned by whoever opened it.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Reads up to `size` bytes into `buffer`. Returns the count, 0 at the end, or -1 with
    // errno set when the bytes cannot be read.
    virtual long long read(char* buffer, std::size_t size) = 0;
};

// The path that names standard input, and the name its records carry.
extern const char kStandardInput[];
extern const char kStandardInputName[];

// The bytes of the file at `path` from `offset` on: a file that starts as gzip does (a
// rotated or shipped archive) decompressed, and kStandardInput ("-") from standard input,
// decompressed when it is gzip, as it is when not (there `offset` must be 0). Null, with errno
// set, when the file cannot be opened.
std::unique_ptr<ByteSource> openFileSource(const std::string& path, std::uint64_t offset);

// The reason that a source's read failed with `error` (its errno), for the operator.
std::string sourceError(int error);

// Hands every byte of `source` to `reader`. `drain` (when set) runs after each piece, so that
// a large file need not be held whole. Returns the number of bytes handed in, or -1 with errno
// set when reading failed (the bytes before the failure are handed in).
long long feedReader(ByteSource& source, RecordReader& reader,
                     const std::function<void()>& drain = nullptr);

// openFileSource and feedReader in one: -1 with errno set when the file cannot be opened or
// read.
long long readInto(const std::string& path, std::uint64_t offset, RecordReader& reader,
                   const std::function<void()>& drain = nullptr);

}  // namespace qellog

#endif  // QELLOG_READ_BYTE_SOURCE_H_
