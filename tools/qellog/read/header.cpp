#include "header.h"

#include <algorithm>
#include <cstring>

#include "text_cursor.h"

namespace qellog {
namespace {

// The writer's module and time fields hold at most 127 characters.
constexpr std::size_t kModuleMax = 127;

// The part of a header after the module name: "][V1.8.63 L hh:mm:ss:ms tid]", at data[at].
HeaderMatch matchAfterModule(const char* data, std::size_t size, std::size_t at,
                             HeaderFields* fields, std::size_t* length) {
    TextCursor c{data, size, at};
    unsigned long major, minor, patch, hours, minutes, seconds, millis, tid;
    const std::size_t versionBegin = at + 3;
    if (!c.literal("][V") || !c.number(1, 4, major) || !c.literal(".") ||
        !c.number(1, 4, minor) || !c.literal(".") || !c.number(1, 4, patch) || !c.literal(" ")) {
        return c.partial ? HeaderMatch::Partial : HeaderMatch::No;
    }
    const std::size_t versionEnd = c.at - 1;
    if (c.at >= size) return HeaderMatch::Partial;
    const char level = data[c.at++];
    if (level != 'V' && level != 'I' && level != 'W' && level != 'E' && level != '?') {
        return HeaderMatch::No;
    }
    const std::size_t timeBegin = c.at + 1;
    if (!c.literal(" ") || !c.number(2, 2, hours) || !c.literal(":") || !c.number(2, 2, minutes) ||
        !c.literal(":") || !c.number(2, 2, seconds) || !c.literal(":") ||
        !c.number(1, 3, millis)) {
        return c.partial ? HeaderMatch::Partial : HeaderMatch::No;
    }
    const std::size_t timeEnd = c.at;
    if (!c.literal(" ") || !c.number(1, 10, tid) || !c.literal("]")) {
        return c.partial ? HeaderMatch::Partial : HeaderMatch::No;
    }
    if (hours > 23 || minutes > 59 || seconds > 60 || tid > 0xFFFFFFFFul) return HeaderMatch::No;
    if (fields != nullptr) {
        fields->moduleEnd = at;
        fields->versionBegin = versionBegin;
        fields->versionEnd = versionEnd;
        fields->level = level;
        fields->timeBegin = timeBegin;
        fields->timeEnd = timeEnd;
        fields->threadId = tid;
        // A leap second counts as the last millisecond of its minute.
        fields->msOfDay = static_cast<int>(
            std::min<unsigned long>(((hours * 60 + minutes) * 60 + seconds) * 1000 + millis,
                                    ((hours * 60 + minutes) * 60 + 59) * 1000 + 999));
    }
    if (length != nullptr) *length = c.at;
    return HeaderMatch::Yes;
}

}  // namespace

Header HeaderFields::at(const char* data) const {
    Header header;
    header.module = std::string_view(data + 1, moduleEnd - 1);
    header.version = std::string_view(data + versionBegin, versionEnd - versionBegin);
    header.level = level;
    header.time = std::string_view(data + timeBegin, timeEnd - timeBegin);
    header.threadId = threadId;
    header.msOfDay = msOfDay;
    return header;
}

HeaderMatch matchHeader(const char* data, std::size_t size, HeaderFields* fields,
                        std::size_t* length) {
    if (size == 0) return HeaderMatch::Partial;
    if (data[0] != '[') return HeaderMatch::No;
    // The module name may itself hold "]": each "]" in reach may be the one that closes it.
    for (std::size_t close = 1; close <= 1 + kModuleMax; ++close) {
        if (close >= size) return HeaderMatch::Partial;
        if (data[close] == '\0') return HeaderMatch::No;
        // An empty line followed by a header: that header starts the record, not this one.
        if (data[close] == '\n' && data[close - 1] == '\n' && close + 1 < size) {
            const HeaderMatch later =
                matchHeader(data + close + 1, size - close - 1, nullptr, nullptr);
            if (later == HeaderMatch::Yes) return HeaderMatch::No;
            if (later == HeaderMatch::Partial) return HeaderMatch::Partial;
        }
        if (data[close] != ']') continue;
        const HeaderMatch match = matchAfterModule(data, size, close, fields, length);
        if (match != HeaderMatch::No) return match;
    }
    return HeaderMatch::No;
}

}  // namespace qellog

