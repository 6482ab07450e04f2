// The message lookup over every code of the library's family: whatever the
// code, the call returns at once with NULL or a sound text.

#include <cstring>
#include <set>

#include <gtest/gtest.h>
#include <qel/error.h>

TEST(ErrorCodeSweepTest, EveryCodeOfTheFamilyGivesNullOrASoundText) {
  std::set<const char *> texts;
  for (unsigned int code = 0x80300000u; code <= 0x8030FFFFu; ++code) {
    const char *text = errorGetErrorCodeString(static_cast<int>(code));
    const unsigned int category = (code >> 8) & 0xFF;
    const unsigned int index = code & 0xFF;
    if (category > 5 || index > 174) {
      ASSERT_EQ(nullptr, text) << std::hex << code;
    }
    if (text == nullptr) {
      continue;
    }
    const size_t length = strnlen(text, 1024);
    ASSERT_GT(length, 0u) << std::hex << code;
    ASSERT_LT(length, 1024u) << std::hex << code;
    for (size_t i = 0; i < length; ++i) {
      ASSERT_TRUE(text[i] >= 0x20 && text[i] < 0x7F) << std::hex << code;
    }
    ASSERT_EQ(text, errorGetErrorCodeString(
                        static_cast<int>(code))); // static storage
    texts.insert(text);
  }
  EXPECT_GT(texts.size(), 2u);
  EXPECT_STREQ("Failed to open the file!",
               errorGetErrorCodeString(static_cast<int>(0x80300002u)));
  EXPECT_STREQ("The value of the parameter is invalid!",
               errorGetErrorCodeString(static_cast<int>(0x80300206u)));
  for (const unsigned int outside :
       {0u, 0x7FFFFFFFu, 0x80310000u, 0x802FFFFFu, 0xFFFFFFFFu}) {
    EXPECT_EQ(nullptr, errorGetErrorCodeString(static_cast<int>(outside)))
        << std::hex << outside;
  }
}
