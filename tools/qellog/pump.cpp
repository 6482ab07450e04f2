#include "pump.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace qellog {

std::size_t recordCut(const char* text, std::size_t length) {
    if (length <= kRecordTextSize) return length;
    // Back over at most three continuation bytes to the lead byte of their character, when that
    // character is whole and would cross the cut.
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    std::size_t cut = kRecordTextSize;
    for (std::size_t back = 1; back <= 3 && (bytes[cut - back + 1] & 0xC0) == 0x80; ++back) {
        const unsigned char lead = bytes[cut - back];
        const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
        if (size > back && cut - back + size <= length) return cut - back;
        if ((lead & 0xC0) != 0x80) break;
    }
    return cut;
}

void logText(const char* module, QelLogLevel level, char* text, std::size_t length) {
    char* const end = text + length;
    for (char* nul = static_cast<char*>(std::memchr(text, '\0', length)); nul != nullptr;
         nul = static_cast<char*>(std::memchr(nul + 1, '\0', end - nul - 1))) {
        *nul = ' ';
    }
    char* piece = text;
    do {
        char* const stop = piece + recordCut(piece, end - piece);
        const char saved = *stop;
        *stop = '\0';
        qelLogSimplify(module, level, piece);
        *stop = saved;
        piece = stop;
    } while (piece < end);
}

int logLines(int fd, const char* module, QelLogLevel level) {
    constexpr std::size_t kChunkSize = 64 * 1024;
    // One byte more than a read fills, so that even a full buffer has room for a terminator.
    std::unique_ptr<char[]> buffer(new char[kChunkSize + 1]);
    std::size_t pending = 0;  // bytes of an unfinished line at the buffer's start
    for (;;) {
        const ssize_t got = read(fd, buffer.get() + pending, kChunkSize - pending);
        if (got < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        if (got == 0) break;

        char* line = buffer.get();
        char* const end = line + pending + got;
        char* scan = line + pending;  // the pending bytes hold no line feed
        while (char* feed = static_cast<char*>(std::memchr(scan, '\n', end - scan))) {
            logText(module, level, line, feed - line);
            line = scan = feed + 1;
        }
        // The unfinished line: log the records it fills already, but keep at least one byte of
        // it, so that a line whose length is a multiple of a record ends in no empty record.
        // What stays is at most one record long, so the next read always has room.
        std::size_t rest = end - line;
        while (rest > kRecordTextSize + 3) {  // + 3: the character at the cut is whole
            const std::size_t cut = recordCut(line, rest);
            logText(module, level, line, cut);
            line += cut;
            rest -= cut;
        }
        std::memmove(buffer.get(), line, rest);
        pending = rest;
    }
    if (pending > 0) {
        logText(module, level, buffer.get(), pending);  // a last line without a line feed
    }
    return 0;
}

}  // namespace qellog
