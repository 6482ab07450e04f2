#ifndef QEL_PLATFORM_DECIMAL_TEXT_H_
#define QEL_PLATFORM_DECIMAL_TEXT_H_

#include <cstdint>

namespace qel {

// Numbers written as decimal text without the C library's formatting, so that a signal handler
// may write them. Each writes at `out` and returns the end; no terminating zero byte.

// The last two digits of `value` (0 to 99).
inline char* putTwoDigits(char* out, int64_t value) {
    out[0] = static_cast<char>('0' + value / 10 % 10);
    out[1] = static_cast<char>('0' + value % 10);
    return out + 2;
}

// `value` with at least `width` characters, zero padded after a '-' of a negative value, as
// "%0*lld" gives it.
inline char* putDecimal(char* out, int64_t value, int width = 0) {
    if (value < 0) {
        *out++ = '-';
        --width;
    }
    char digits[20];
    int count = 0;
    uint64_t magnitude = static_cast<uint64_t>(value);
    magnitude = value < 0 ? 0 - magnitude : magnitude;
    do {
        digits[count++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    for (; width > count; --width) {
        *out++ = '0';
    }
    while (count > 0) {
        *out++ = digits[--count];
    }
    return out;
}

}  // namespace qel

#endif  // QEL_PLATFORM_DECIMAL_TEXT_H_
