#include <qel/error.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "error/error_codes.h"

namespace {

int code(uint32_t bits) {
    return static_cast<int>(bits);
}

std::string textOf(uint32_t bits) {
    const char* text = errorGetErrorCodeString(code(bits));
    return text == nullptr ? std::string("<null>") : std::string(text);
}

// Restores the error slot, so that the order of the tests does not matter.
class ErrorSlotTest : public ::testing::Test {
protected:
    void SetUp() override { m_saved = *ErrnoLocal(); }
    void TearDown() override { *ErrnoLocal() = m_saved; }

private:
    int m_saved = 0;
};

}  // namespace

// Every code of the layout, whatever index byte, goes through the lookup once. The digest
// (FNV-1a, 64 bits, over "0x%08X=text\n" for each code with a text, in code order) was
// computed from the message table of the design documents, independently of the library's
// table: any changed, missing, extra or moved byte of any text changes it.
TEST(ErrorCodeStringTest, WholeTableMatchesTheTexts) {
    uint64_t digest = 0xcbf29ce484222325ULL;
    int withText = 0;
    int perCategory[6] = {};
    for (uint32_t category = 0; category <= 5; ++category) {
        for (uint32_t index = 0; index <= 255; ++index) {
            const uint32_t bits = 0x80300000u | (category << 8) | index;
            const char* text = errorGetErrorCodeString(code(bits));
            if (text == nullptr) {
                continue;
            }
            ++withText;
            ++perCategory[category];
            char prefix[16];
            std::snprintf(prefix, sizeof(prefix), "0x%08X=", static_cast<unsigned int>(bits));
            const std::string line = std::string(prefix) + text + "\n";
            for (unsigned char byte : line) {
                digest ^= byte;
                digest *= 0x100000001b3ULL;
            }
        }
    }
    // 260 texts, of which the base codes of categories 1 to 5 are never given out.
    EXPECT_EQ(255, withText);
    const int expectedPerCategory[6] = {3, 17, 9, 34, 18, 174};
    for (int category = 0; category < 6; ++category) {
        EXPECT_EQ(expectedPerCategory[category], perCategory[category]) << category;
    }
    EXPECT_EQ(0x8566D6D4FB10E836ULL, digest);
}

TEST(ErrorCodeStringTest, TextsWithSignificantBlanksAndShared) {
    EXPECT_EQ("Common operation not supported! ", textOf(0x80300111u));
    EXPECT_EQ("startImpl fail ", textOf(0x80300567u));
    EXPECT_EQ("Failed to createDirectory ", textOf(0x803005A4u));
    EXPECT_EQ("Stop stream  fail!", textOf(0x80300569u));

    EXPECT_EQ("Failed to open the file!", textOf(0x80300002u));
    EXPECT_EQ("The value of the parameter is invalid!", textOf(0x80300206u));
    EXPECT_EQ("Device is already opened!", textOf(0x803005AEu));  // the last entry
    EXPECT_EQ("Device getHubNumber failed!", textOf(0x80300322u));
    EXPECT_EQ("Start Thread Failed", textOf(0x80300412u));

    // Equal texts under two codes: each code answers with its own entry.
    const char* http4 = errorGetErrorCodeString(code(0x80300409u));
    const char* http5 = errorGetErrorCodeString(code(0x803005A1u));
    ASSERT_NE(nullptr, http4);
    ASSERT_NE(nullptr, http5);
    EXPECT_STREQ("HTTP get nothing!", http4);
    EXPECT_STREQ("HTTP get nothing!", http5);
    EXPECT_EQ(http4, errorGetErrorCodeString(code(0x80300409u)));  // static, stable storage
}

TEST(ErrorCodeStringTest, LookupRules) {
    // Only the first category's base code has a message.
    EXPECT_EQ("No Error! System Base Code", textOf(0x80300000u));
    for (uint32_t base : {0x80300100u, 0x80300200u, 0x80300300u, 0x80300400u, 0x80300500u}) {
        EXPECT_EQ(nullptr, errorGetErrorCodeString(code(base))) << std::hex << base;
    }
    // Empty slots just after each category's last text.
    for (uint32_t empty : {0x80300003u, 0x80300112u, 0x8030020Au, 0x80300323u, 0x80300413u,
                           0x803005AFu}) {
        EXPECT_EQ(nullptr, errorGetErrorCodeString(code(empty))) << std::hex << empty;
    }
    // Indices 175 to 255 give null in every category, including those whose slot would
    // land inside the next category's row if the index were not checked.
    for (uint32_t category = 0; category <= 5; ++category) {
        for (uint32_t index = 175; index <= 255; ++index) {
            const uint32_t bits = 0x80300000u | (category << 8) | index;
            EXPECT_EQ(nullptr, errorGetErrorCodeString(code(bits))) << std::hex << bits;
        }
    }
    // Outside the layout: unknown category, wrong kit or family mark, no mark at all.
    for (uint32_t outside : {0x80300600u, 0x80300601u, 0x8030FF01u, 0x81300001u, 0x80310001u,
                             0x00300001u, 0x00000002u, 0x00000000u, 0x7F300001u, 0xFF300001u,
                             0x80200002u}) {
        EXPECT_EQ(nullptr, errorGetErrorCodeString(code(outside))) << std::hex << outside;
    }
    // The same low bits with a positive value or a negative one outside the kit.
    EXPECT_EQ(nullptr, errorGetErrorCodeString(0x00300002));
    EXPECT_EQ(nullptr, errorGetErrorCodeString(-2));
}

TEST_F(ErrorSlotTest, OneSlotForEveryAccessAndThread) {
    int* slot = ErrnoLocal();
    ASSERT_NE(nullptr, slot);
    EXPECT_EQ(&g_errono, slot);
    EXPECT_EQ(slot, ErrnoLocal());
    EXPECT_EQ(slot, qel::QelErrno::getErrnoLocation());
    qel::QelErrno object;
    EXPECT_EQ(slot, object.getErrnoLocation());
    EXPECT_EQ(0, key_created);

    // The way the library fails: the code lands in the slot, -1 comes back.
    EXPECT_EQ(-1, qel::failWith(qel::kErrorInvalidParameter));
    EXPECT_EQ(code(0x80300206u), *slot);
    EXPECT_LT(qel::kErrorFileOpen, 0);
    EXPECT_STREQ("Failed to open the file!", errorGetErrorCodeString(qel::kErrorFileOpen));

    // Threads started after the store see it, at the same address, and a store from
    // another thread is the value everyone reads next: the slot is not thread-local.
    std::vector<int*> addresses(4, nullptr);
    std::vector<int> seen(4, 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i, &addresses, &seen] {
            addresses[i] = ErrnoLocal();
            seen[i] = *ErrnoLocal();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(slot, addresses[i]);
        EXPECT_EQ(code(0x80300206u), seen[i]);
    }
    std::thread([] { qel::failWith(qel::kErrorFileOpen); }).join();
    EXPECT_EQ(qel::kErrorFileOpen, *ErrnoLocal());

    // A caller may reset the slot.
    *ErrnoLocal() = 0;
    EXPECT_EQ(0, g_errono);
}
