#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <qel/error.h>

#include "error/error_codes.h"

// Every code of the family goes through the lookup. The digest (FNV-1a, 64 bits, over
// "0x%08X=text\n" for each code with a text) comes from the design documents' table: any
// changed, missing or extra text changes it, base codes of categories 1 to 5 included.
TEST(ErrorTest, WholeTableMatchesTheTextsAndOthersGiveNull) {
    uint64_t digest = 0xcbf29ce484222325ULL;
    for (uint32_t bits = 0x80300000u; bits <= 0x8030FFFFu; ++bits) {
        if (const char* text = errorGetErrorCodeString(static_cast<int>(bits))) {
            char line[512];
            snprintf(line, sizeof(line), "0x%08X=%s\n", static_cast<unsigned>(bits), text);
            for (const char* byte = line; *byte != '\0'; ++byte) {
                digest = (digest ^ static_cast<unsigned char>(*byte)) * 0x100000001b3ULL;
            }
        }
    }
    EXPECT_EQ(0x8566D6D4FB10E836ULL, digest);
    for (uint32_t outside : {0x81300001u, 0x80310001u, 0x80B00001u, 0x00300002u, 0u, 0x7F300001u,
                             0xFF300001u, 0x802FFFFFu}) {
        EXPECT_EQ(nullptr, errorGetErrorCodeString(static_cast<int>(outside))) << outside;
    }
}

// One slot for the whole process: every thread and both accessors see the last store.
TEST(ErrorTest, OneSlotForEveryThread) {
    *qel::QelErrno::getErrnoLocation() = 7;
    std::thread([] { *ErrnoLocal() = *ErrnoLocal() + 1; }).join();
    EXPECT_EQ(8, g_errono);
    g_errono = 0;
}

// The name error.h documents for a code: QEL_ERROR_, the category's word, then BASE or the
// message's words split at camel case, as many whole words as fit in `limit` characters.
static std::string nameFrom(unsigned category, unsigned index, size_t limit) {
    static const char* const kCategories[] = {"SYSTEM", "COMMON", "PARAM", "USB", "UPDATE", "SDK"};
    const unsigned code = 0x80300000 | category << 8 | index;
    std::string text = index == 0 ? "BASE" : errorGetErrorCodeString(code);
    text = std::regex_replace(text, std::regex("([a-z])(?=[A-Z])|([A-Z0-9])(?=[A-Z][a-z])"),
                              "$1$2 ");
    std::string name = std::string("QEL_ERROR_") + kCategories[category];
    const std::regex word("[A-Za-z0-9]+");
    for (std::sregex_iterator w(text.begin(), text.end(), word), end; w != end; ++w) {
        if (name.size() + 1 + w->length() > limit) break;
        name += "_" + w->str();
    }
    std::transform(name.begin(), name.end(), name.begin(), ::toupper);
    return name;
}

// Every code with a message has exactly the name the rule of error.h gives it, with its value,
// and no other name; no two names are alike within the 63 characters a compiler tells apart.
TEST(ErrorTest, EveryCodeHasItsDocumentedName) {
    std::map<std::string, std::vector<unsigned>> byName;  // the name without an index suffix
    for (unsigned category = 0; category < qel::kErrorCategoryCount; ++category) {
        for (unsigned index = 0; index < qel::kErrorIndexCount; ++index) {
            if (index == 0 || errorGetErrorCodeString(0x80300000 | category << 8 | index)) {
                byName[nameFrom(category, index, 63)].push_back(category << 8 | index);
            }
        }
    }
    std::map<std::string, unsigned> expected;
    for (const auto& name : byName) {
        for (unsigned code : name.second) {
            char suffix[4];
            snprintf(suffix, sizeof(suffix), "_%02X", code & 0xFFu);
            const std::string full = name.second.size() == 1 ? name.first
                : nameFrom(code >> 8, code & 0xFFu, 60) + suffix;
            EXPECT_TRUE(expected.emplace(full, 0x80300000u | code).second) << full;
        }
    }
    std::ifstream header(QEL_SOURCE_DIR "/include/qel/error.h");
    std::map<std::string, unsigned> declared;
    std::regex definition("#define (QEL_ERROR_\\w+) QEL_ERROR_CODE\\(0x([0-9A-F]{8})\\)");
    std::smatch match;
    for (std::string line; std::getline(header, line);) {
        if (std::regex_match(line, match, definition)) {
            EXPECT_LE(match[1].length(), 63) << line;
            declared[match[1]] = static_cast<unsigned>(std::stoul(match[2], nullptr, 16));
        }
    }
    EXPECT_EQ(260u, expected.size());
    for (const auto& name : expected) EXPECT_EQ(name.second, declared[name.first]) << name.first;
    EXPECT_EQ(expected.size(), declared.size()) << "names error.h has beyond the table's";
}
