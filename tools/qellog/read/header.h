#ifndef QELLOG_READ_HEADER_H_
#define QELLOG_READ_HEADER_H_

#include <cstddef>
#include <string_view>

namespace qellog {

// The header "[module][V1.8.63 L hh:mm:ss:ms tid]" that starts every record. The module is
// any 0 to 127 bytes but NUL (line feeds and "]" too); L is V, I, W, E, or ? for a level that
// has no letter. Its texts view the bytes it was read from (see Record).
struct Header {
    std::string_view module;
    std::string_view version;  // "1.8.63"
    char level = '?';
    std::string_view time;  // "hh:mm:ss:ms", as printed
    unsigned long threadId = 0;
    int msOfDay = 0;
};

// A header as read, kept apart from the bytes it was read from (which may move): where its
// texts lie in them, and its numbers.
struct HeaderFields {
    std::size_t moduleEnd = 1;  // the module is data[1..moduleEnd)
    std::size_t versionBegin = 0, versionEnd = 0;
    std::size_t timeBegin = 0, timeEnd = 0;
    char level = '?';
    unsigned long threadId = 0;
    int msOfDay = 0;

    // The header these fields describe when its bytes are at `data`.
    Header at(const char* data) const;
};

enum class HeaderMatch { Yes, No, Partial };

// Tries to read a header at data[0..size). Yes: `length` is its length and `fields` where its
// fields are. Partial: the bytes end before it could be decided. No: there is no header here.
// Either pointer may be null.
HeaderMatch matchHeader(const char* data, std::size_t size, HeaderFields* fields,
                        std::size_t* length);

}  // namespace qellog

#endif  // QELLOG_READ_HEADER_H_
