#ifndef QELLOG_READ_TEXT_CURSOR_H_
#define QELLOG_READ_TEXT_CURSOR_H_

#include <cstddef>

namespace qellog {

inline bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Exactly `count` decimal digits at `text` into `value`; `text` moves past them.
inline bool readDigits(const char*& text, int count, int& value) {
    value = 0;
    for (int i = 0; i < count; ++i, ++text) {
        if (!isDigit(*text)) return false;
        value = value * 10 + (*text - '0');
    }
    return true;
}

// Reads fixed texts and numbers from data[0..size), byte by byte, from `at` on; `partial`
// notes that the bytes ended before a decision could be made.
struct TextCursor {
    const char* data;
    std::size_t size;
    std::size_t at;
    bool partial = false;

    // Moves past `text` when the bytes hold it here. (Inlined: a header is read with a dozen
    // calls, and the reader reads one per record.)
    [[gnu::always_inline]] bool literal(const char* text) {
        for (; *text != '\0'; ++text, ++at) {
            if (at >= size) {
                partial = true;
                return false;
            }
            if (data[at] != *text) return false;
        }
        return true;
    }
    // Moves past `minDigits` to `maxDigits` decimal digits and gives their value.
    [[gnu::always_inline]] bool number(int minDigits, int maxDigits, unsigned long& value) {
        value = 0;
        const std::size_t begin = at;
        const std::size_t end = size - at < static_cast<std::size_t>(maxDigits) ? size
                                                                               : at + maxDigits;
        for (; at < end && isDigit(data[at]); ++at) {
            value = value * 10 + static_cast<unsigned long>(data[at] - '0');
        }
        // The bytes ended before a byte that ends the number or the longest number allowed.
        if (at == size && at - begin < static_cast<std::size_t>(maxDigits)) {
            partial = true;
            return false;
        }
        return at - begin >= static_cast<std::size_t>(minDigits);
    }
};

}  // namespace qellog

#endif  // QELLOG_READ_TEXT_CURSOR_H_
