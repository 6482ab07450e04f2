#include <cstdint>
#include <cstdio>
#include <thread>

#include <gtest/gtest.h>

#include <qel/error.h>

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
    EXPECT_EQ(&g_errono, ErrnoLocal());
    EXPECT_EQ(&g_errono, qel::QelErrno::getErrnoLocation());
    g_errono = 7;
    std::thread([] { *ErrnoLocal() = *ErrnoLocal() + 1; }).join();
    EXPECT_EQ(8, g_errono);
    g_errono = 0;
}
