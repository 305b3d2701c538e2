// Data buffer builtins that turn bytes into text and back, and the
// change-detection hash of a buffer.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "builtins/data.h"
#include "builtins/data_support.h"

namespace vrk {

uint32_t data_hash(const uint8_t* bytes, std::size_t size) {
    // Words over the first half of the buffer (rounded down to whole words of
    // the size / 8 count), single bytes for the rest. The sum is what matters,
    // so the order of words does not: this is for noticing change only.
    uint32_t total = static_cast<uint32_t>(size);
    const std::size_t words = size / 8;
    for (std::size_t w = 0; w < words; ++w) {
        const uint8_t* p = bytes + 4 * w;
        total += static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
                 static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
    }
    for (std::size_t i = 4 * words; i < size; ++i) total += bytes[i];
    return total;
}

namespace lib {

using data::arg;
using data::report;

namespace {

// The value of one pair of hex digits, read the way the C library reads a
// base-16 number (leading blanks and a sign allowed, reading stops at the
// first non-digit); a pair with no digit in front reads as 0.
uint8_t hex_pair(char high, char low) {
    const char pair[3] = {high, low, '\0'};
    return static_cast<uint8_t>(std::strtol(pair, nullptr, 16));
}

}  // namespace

VRK_BUILTIN(encode_data) {
    std::string text;
    if (args.size() == 1) {
        // The argument is made DATA if it is not: a value of another type is lost.
        if (const std::vector<uint8_t>* bytes = as_data(arg(args, 0))) {
            static constexpr char kDigits[] = "0123456789abcdef";
            text.reserve(bytes->size() * 2);
            for (const uint8_t b : *bytes) {
                text.push_back(kDigits[b >> 4]);
                text.push_back(kDigits[b & 0xF]);
            }
        }
    }
    set_string(&result, text);
    return &result;
}

VRK_BUILTIN(decode_data) {
    if (args.size() != 1) {
        set_int(&result, 0);
        return &result;
    }
    // The text of a string (or error) value as it is; other values hold no text.
    const vrkvar* source = arg(args, 0);
    const bool has_text = (source->type == Tag::STRING || source->type == Tag::ERR) &&
                          source->value.str;
    const std::string text = has_text ? *source->value.str : std::string();
    std::vector<uint8_t> bytes;
    if (text.size() % 2 != 0) {
        report(block, "decode_data: odd number of hex digits!");
    } else {
        bytes.reserve(text.size() / 2);
        for (std::size_t i = 0; i < text.size(); i += 2)
            bytes.push_back(hex_pair(text[i], text[i + 1]));
    }
    if (std::vector<uint8_t>* out = as_data(&result)) *out = std::move(bytes);
    return &result;
}

VRK_BUILTIN(char_to_hex) {
    if (args.size() != 1) {
        set_string(&result, "00");
        return &result;
    }
    // Formatted as an unsigned 32-bit number: -1 is FFFFFFFF.
    char text[16];
    std::snprintf(text, sizeof text, "%02X", static_cast<unsigned>(to_int(arg(args, 0))));
    set_string(&result, text);
    return &result;
}

VRK_BUILTIN(hex_to_char) {
    if (args.size() != 1) {
        set_int(&result, 0);
        return &result;
    }
    const std::string text = to_string(arg(args, 0));
    set_int(&result, std::strtoll(text.c_str(), nullptr, 16));
    return &result;
}

VRK_BUILTIN(encode_url_string) {
    const std::string text = args.size() == 1 ? to_string(arg(args, 0)) : std::string();
    std::string out;
    out.reserve(text.size());
    char escaped[4];
    for (const char c : text) {
        const auto b = static_cast<unsigned char>(c);
        // Only these bytes and those outside ASCII are escaped; "%", "&", "=",
        // "?" and "#" pass as they are.
        switch (b) {
            case '\n': out += "%0A"; continue;
            case '\r': out += "%0D"; continue;
            case ' ': out += "%20"; continue;
            case '\'': out += "%27"; continue;
            case '+': out += "%2B"; continue;
            case ',': out += "%2C"; continue;
            case ';': out += "%3B"; continue;
            default: break;
        }
        if (b >= 128) {
            std::snprintf(escaped, sizeof escaped, "%%%02X", b);
            out += escaped;
        } else {
            out.push_back(c);
        }
    }
    set_string(&result, out);
    return &result;
}

VRK_BUILTIN(datahash) {
    const std::vector<uint8_t>* bytes = args.size() == 1 ? data::bytes_of(arg(args, 0)) : nullptr;
    if (!bytes) {
        report(block, "datahash error\n");
        set_int(&result, 0);
        return &result;
    }
    // The 32-bit sum, sign-extended.
    set_int(&result, static_cast<int32_t>(data_hash(bytes->data(), bytes->size())));
    return &result;
}

}  // namespace lib

}  // namespace vrk
