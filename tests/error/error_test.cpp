#include <qel/error.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>

#include "error/error_codes.h"

static const char* lookup(uint32_t bits) {
    return errorGetErrorCodeString(static_cast<int>(bits));
}

// Every code of the family goes through the lookup once: the six categories of the table with
// their empty slots, unused base codes and indices past 174, and the 250 categories past them,
// which must all give null. The digest (FNV-1a, 64 bits, over "0x%08X=text\n" for each code with
// a text, in code order) comes from the design documents' message table, not the library's: any
// changed, missing, extra or moved byte of any text changes it.
TEST(ErrorCodeStringTest, WholeTableMatchesTheTexts) {
    uint64_t digest = 0xcbf29ce484222325ULL;
    int perCategory[256] = {};
    for (uint32_t bits = 0x80300000u; bits <= 0x8030FFFFu; ++bits) {
        if (const char* text = lookup(bits)) {
            ++perCategory[(bits >> 8) & 0xFF];
            char line[512];
            std::snprintf(line, sizeof(line), "0x%08X=%s\n", static_cast<unsigned>(bits), text);
            for (const char* byte = line; *byte != '\0'; ++byte) {
                digest = (digest ^ static_cast<unsigned char>(*byte)) * 0x100000001b3ULL;
            }
        }
    }
    // 260 texts, of which the base codes of categories 1 to 5 are never given out.
    const int expectedPerCategory[6] = {3, 17, 9, 34, 18, 174};
    for (int category = 0; category < 256; ++category) {
        EXPECT_EQ(category < 6 ? expectedPerCategory[category] : 0, perCategory[category])
            << category;
    }
    EXPECT_EQ(0x8566D6D4FB10E836ULL, digest);

    // Where the digest cannot say what went wrong: blanks that matter, and equal texts under
    // two codes, each answered from its own entry.
    EXPECT_STREQ("No Error! System Base Code", lookup(0x80300000u));
    EXPECT_STREQ("Common operation not supported! ", lookup(0x80300111u));
    EXPECT_STREQ("startImpl fail ", lookup(0x80300567u));
    EXPECT_STREQ("Failed to createDirectory ", lookup(0x803005A4u));
    EXPECT_STREQ("Stop stream  fail!", lookup(0x80300569u));
    EXPECT_STREQ("HTTP get nothing!", lookup(0x80300409u));
    EXPECT_STREQ("HTTP get nothing!", lookup(0x803005A1u));

    // Outside the family: wrong kit or family mark, no mark at all.
    for (uint32_t outside : {0x81300001u, 0x80310001u, 0x00300002u, 0x00000000u, 0x7F300001u,
                             0xFF300001u, 0x80200002u, 0xFFFFFFFEu, 0x802FFFFFu}) {
        EXPECT_EQ(nullptr, lookup(outside)) << std::hex << outside;
    }
}

// The library fails by storing its code in the one process-wide slot and returning -1: every
// thread sees the slot at the same address and reads the last store, whoever made it.
TEST(ErrorSlotTest, OneSlotForEveryAccessAndThread) {
    const int saved = *ErrnoLocal();
    int* slot = ErrnoLocal();
    EXPECT_EQ(&g_errono, slot);
    EXPECT_EQ(slot, qel::QelErrno::getErrnoLocation());
    EXPECT_EQ(-1, qel::failWith(qel::kErrorInvalidParameter));
    EXPECT_EQ(static_cast<int>(0x80300206u), *slot);
    EXPECT_STREQ("Failed to open the file!", errorGetErrorCodeString(qel::kErrorFileOpen));

    int* seenAt = nullptr;
    int seen = 0;
    std::thread([&] {
        seenAt = ErrnoLocal();
        seen = *ErrnoLocal();
        qel::failWith(qel::kErrorFileOpen);
    }).join();
    EXPECT_EQ(slot, seenAt);
    EXPECT_EQ(static_cast<int>(0x80300206u), seen);
    EXPECT_EQ(qel::kErrorFileOpen, *slot);
    *slot = saved;
}
