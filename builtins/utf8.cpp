// The UTF-8 test of `is_utf8`, one lead byte at a time.
#include "builtins/utf8.h"

#include <cstdint>

namespace vrk {

namespace {

// The allowed range of the byte after a lead byte; the bytes after that are
// plain continuation bytes (0x80 to 0xBF).
struct lead_rule {
    uint8_t second_low;   // lowest second byte
    uint8_t second_high;  // highest second byte
    uint8_t length;       // bytes in the whole sequence; 0: not a lead byte
};

lead_rule rule_of(uint8_t lead) {
    if (lead >= 0xC2 && lead <= 0xDF) return {0x80, 0xBF, 2};
    if (lead == 0xE0) return {0xA0, 0xBF, 3};  // no overlong three-byte forms
    if (lead == 0xED) return {0x80, 0x9F, 3};  // no surrogate halves
    if (lead >= 0xE1 && lead <= 0xEF) return {0x80, 0xBF, 3};
    if (lead == 0xF0) return {0x90, 0xBF, 4};  // no overlong four-byte forms
    if (lead >= 0xF1 && lead <= 0xF3) return {0x80, 0xBF, 4};
    if (lead == 0xF4) return {0x80, 0x8F, 4};  // nothing above U+10FFFF
    return {0, 0, 0};
}

bool single_allowed(uint8_t byte) {
    return byte == 9 || byte == 10 || byte == 13 || (byte >= 32 && byte <= 126);
}

}  // namespace

bool is_valid_utf8(const char* text, std::size_t size) {
    if (!text) return false;
    const auto* bytes = reinterpret_cast<const uint8_t*>(text);
    std::size_t i = 0;
    while (i < size && bytes[i] != 0) {
        const uint8_t lead = bytes[i];
        if (lead < 0x80) {
            if (!single_allowed(lead)) return false;
            ++i;
            continue;
        }
        const lead_rule rule = rule_of(lead);
        if (rule.length == 0) return false;
        // A zero byte or the end inside a sequence fails the range tests below.
        if (i + 1 >= size || bytes[i + 1] < rule.second_low || bytes[i + 1] > rule.second_high)
            return false;
        for (std::size_t k = 2; k < rule.length; ++k) {
            if (i + k >= size || bytes[i + k] < 0x80 || bytes[i + k] > 0xBF) return false;
        }
        i += rule.length;
    }
    return true;
}

}  // namespace vrk
