#include "json.h"

#include <cstdint>
#include <cstdio>

#include "read/civil_time.h"

namespace qellog {
namespace {

// The length of the valid UTF-8 sequence at data[0..size), or 0 when there is none.
std::size_t utf8Length(const unsigned char* data, std::size_t size) {
    const unsigned char lead = data[0];
    std::size_t length;
    unsigned int lowest, value;
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2, lowest = 0x80, value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3, lowest = 0x800, value = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4, lowest = 0x10000, value = lead & 0x07;
    } else {
        return 0;
    }
    if (size < length) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((data[i] & 0xC0) != 0x80) return 0;
        value = (value << 6) | (data[i] & 0x3F);
    }
    // No overlong forms, no surrogates, nothing above U+10FFFF.
    if (value < lowest || (value >= 0xD800 && value <= 0xDFFF) || value > 0x10FFFF) return 0;
    return length;
}

void appendField(std::string& out, const char* name, std::string_view value) {
    out += ",\"";
    out += name;
    out += "\":";
    appendJsonString(out, value.data(), value.size());
}

}  // namespace

void appendJsonString(std::string& out, const char* data, std::size_t size) {
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
    out += '"';
    for (std::size_t i = 0; i < size;) {
        const unsigned char c = bytes[i];
        switch (c) {
            case '"': out += "\\\""; ++i; continue;
            case '\\': out += "\\\\"; ++i; continue;
            case '\n': out += "\\n"; ++i; continue;
            case '\r': out += "\\r"; ++i; continue;
            case '\t': out += "\\t"; ++i; continue;
            default: break;
        }
        if (c < 0x20 || c == 0x7F) {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\u%04x", c);
            out += escaped;
            ++i;
            continue;
        }
        const std::size_t length = utf8Length(bytes + i, size - i);
        if (length == 0) {
            out += "\\ufffd";
            ++i;
        } else {
            out.append(data + i, length);
            i += length;
        }
    }
    out += '"';
}

std::string recordJson(const Record& record) {
    const Header empty;
    const Header& header = record.headed ? record.header : empty;
    std::string out = "{\"module\":";
    appendJsonString(out, header.module.data(), header.module.size());
    appendField(out, "version", header.version);
    appendField(out, "level", record.headed ? std::string(1, header.level) : std::string());
    appendField(out, "time", header.time);
    out += ",\"tid\":";
    out += record.headed ? std::to_string(header.threadId) : std::string("null");
    out += ",\"text\":";
    appendJsonString(out, record.bytes.data() + record.textBegin,
                     record.textEnd - record.textBegin);
    appendField(out, "file", record.file);
    appendField(out, "date", record.date);
    appendField(out, "ts", record.timed ? shownTimestamp(record.utcMs, record.zoneOffset)
                                        : std::string());
    out += '}';
    return out;
}

}  // namespace qellog
