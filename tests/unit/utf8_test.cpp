// The UTF-8 test of is_utf8, row by row of its lead-byte table: the allowed
// single bytes, each lead byte's second-byte range, the continuation bytes,
// cut sequences and the stop at a zero byte.
#include <gtest/gtest.h>

#include <string>

#include "builtins/utf8.h"

namespace vrk {
namespace {

bool valid(const std::string& text) { return is_valid_utf8(text.c_str(), text.size()); }

TEST(Utf8Test, SingleBytes) {
    EXPECT_TRUE(valid(""));
    EXPECT_TRUE(valid("plain text ~ 0-9 {}"));
    EXPECT_TRUE(valid("\t\n\r"));
    for (int c = 1; c < 32; ++c) {
        if (c == 9 || c == 10 || c == 13) continue;
        EXPECT_FALSE(valid(std::string(1, static_cast<char>(c)))) << c;
    }
    EXPECT_FALSE(valid("\x7f"));
    // Continuation bytes and the never-used leads cannot start a character.
    for (int c : {0x80, 0xBF, 0xC0, 0xC1, 0xF5, 0xF8, 0xFF})
        EXPECT_FALSE(valid(std::string(1, static_cast<char>(c)) + "\x80\x80\x80")) << c;
    EXPECT_FALSE(is_valid_utf8(nullptr, 0));
}

TEST(Utf8Test, LeadByteRanges) {
    struct row {
        unsigned lead;    // the lead byte
        unsigned low;     // lowest allowed second byte
        unsigned high;    // highest allowed second byte
        unsigned length;  // bytes in the sequence
    };
    const row rows[] = {
        {0xC2, 0x80, 0xBF, 2}, {0xDF, 0x80, 0xBF, 2}, {0xE0, 0xA0, 0xBF, 3}, {0xE1, 0x80, 0xBF, 3},
        {0xEC, 0x80, 0xBF, 3}, {0xED, 0x80, 0x9F, 3}, {0xEE, 0x80, 0xBF, 3}, {0xEF, 0x80, 0xBF, 3},
        {0xF0, 0x90, 0xBF, 4}, {0xF1, 0x80, 0xBF, 4}, {0xF3, 0x80, 0xBF, 4}, {0xF4, 0x80, 0x8F, 4},
    };
    for (const row& r : rows) {
        auto sequence = [&](unsigned second) {
            std::string s(1, static_cast<char>(r.lead));
            s += static_cast<char>(second);
            s.append(r.length - 2, '\x80');
            return "a" + s + "b";
        };
        EXPECT_TRUE(valid(sequence(r.low))) << std::hex << r.lead;
        EXPECT_TRUE(valid(sequence(r.high))) << std::hex << r.lead;
        EXPECT_FALSE(valid(sequence(r.low - 1))) << std::hex << r.lead;
        EXPECT_FALSE(valid(sequence(r.high + 1))) << std::hex << r.lead;
        // Cut short, at the end of the text and before a zero byte.
        const std::string full = sequence(r.low);
        EXPECT_FALSE(valid(full.substr(0, full.size() - 2))) << std::hex << r.lead;
        std::string zeroed = full;
        zeroed[zeroed.size() - 2] = '\0';
        EXPECT_FALSE(valid(zeroed)) << std::hex << r.lead;
    }
    // A later continuation byte out of range.
    EXPECT_FALSE(valid("\xE2\x98\x41"));
    EXPECT_FALSE(valid("\xF0\x9F\x98\xC0"));
    EXPECT_TRUE(
        valid("gr\xC3\xBC\xC3\x9F"
              "e \xE2\x98\x83 \xF0\x9F\x98\x80"));
}

TEST(Utf8Test, WalkEndsAtZeroByte) {
    const std::string text("ok\0\xFF\x01", 5);
    EXPECT_TRUE(valid(text));
    const std::string bad("\x01\0ok", 4);
    EXPECT_FALSE(valid(bad));
    // The size bounds the walk of a text without a terminating zero.
    const char buffer[] = {'a', '\xC3'};
    EXPECT_FALSE(is_valid_utf8(buffer, 2));
    EXPECT_TRUE(is_valid_utf8(buffer, 1));
}

}  // namespace
}  // namespace vrk
