// The split loops of the string builtins, plain and quote- and bracket-aware.
#include "builtins/text_split.h"

#include "frontend/text.h"

namespace vrk {

namespace {

// Cuts `text` at the hits `next(from)` gives, each `width` bytes long, until
// it gives npos or `limit` cuts are made.
template <class Next>
std::vector<std::string> cut(const std::string& text, std::size_t width, int64_t limit, Next next) {
    std::vector<std::string> pieces;
    std::size_t pos = 0;
    int64_t cuts = 0;
    while (limit < 0 || cuts < limit) {
        const std::size_t hit = next(pos);
        // A hit at the very end is the search reading the terminating zero.
        if (hit == npos || hit >= text.size() || hit < pos) break;
        pieces.push_back(text.substr(pos, hit - pos));
        pos = hit + width;
        ++cuts;
    }
    pieces.push_back(pos < text.size() ? text.substr(pos) : std::string());
    return pieces;
}

}  // namespace

std::vector<std::string> split_plain(const std::string& text, const std::string& token,
                                     int64_t limit) {
    std::vector<std::string> pieces;
    each_plain_piece(text, token, limit, [&](std::size_t at, std::size_t size) {
        pieces.emplace_back(text, at, size);
    });
    return pieces;
}

std::vector<std::string> split_scoped_word(const std::string& text, const std::string& token,
                                           int64_t limit) {
    if (token.empty()) return {text};
    return cut(text, token.size(), limit,
               [&](std::size_t from) { return find_scoped_text(text, token, from, false); });
}

std::vector<std::string> split_scoped_char(const std::string& text, char ch) {
    return cut(text, 1, -1, [&](std::size_t from) { return find_scoped(text, ch, from, false); });
}

}  // namespace vrk
