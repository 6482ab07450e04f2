#include "numbers.h"

#include <string>

#include "read/text_cursor.h"

namespace qellog {
namespace {

int digitValue(char c, int base) {
    if (isDigit(c)) return c - '0';
    if (base == 16 && c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (base == 16 && c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

bool parseUnsigned(const char* text, int base, std::uint64_t max, std::uint64_t& value) {
    value = 0;
    if (*text == '\0') return false;
    for (; *text != '\0'; ++text) {
        const int digit = digitValue(*text, base);
        const std::uint64_t add = static_cast<std::uint64_t>(digit);
        if (digit < 0 || add > max || value > (max - add) / base) return false;
        value = value * base + static_cast<std::uint64_t>(digit);
    }
    return true;
}

bool parseSize(const char* text, std::uint64_t max, std::uint64_t& size) {
    std::string digits(text);
    int shift = 0;
    if (!digits.empty()) {
        switch (digits.back()) {
            case 'K': case 'k': shift = 10; break;
            case 'M': case 'm': shift = 20; break;
            case 'G': case 'g': shift = 30; break;
            case 'T': case 't': shift = 40; break;
            default: break;
        }
        if (shift != 0) digits.pop_back();
    }
    std::uint64_t value = 0;
    if (!parseUnsigned(digits.c_str(), 10, max >> shift, value)) return false;
    size = value << shift;
    return true;
}

}  // namespace qellog
