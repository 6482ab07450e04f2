#ifndef QELLOG_NUMBERS_H_
#define QELLOG_NUMBERS_H_

#include <cstdint>

namespace qellog {

// Digits of `base` (10 or 16) up to the end of `text` into `value`. Returns false for an empty
// text, any other character, or a value above `max`.
bool parseUnsigned(const char* text, int base, std::uint64_t max, std::uint64_t& value);

// Decimal digits with an optional K, M, G or T (either case, powers of 1024). Returns false
// when the text is malformed or the value is above `max`.
bool parseSize(const char* text, std::uint64_t max, std::uint64_t& size);

}  // namespace qellog

#endif  // QELLOG_NUMBERS_H_
