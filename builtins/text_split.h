// The split loops of the string builtins: cutting a text at every hit of a
// delimiter, either anywhere (`split`) or only where the delimiter stands
// outside quotes and brackets (`specialsplit`, `splitf`).
//
// The scoped forms use the quote- and bracket-aware search of the front end
// (frontend/text.h): a double or single quote opens a quoted stretch unless a
// backslash stands before it, nothing inside a quoted stretch counts, and the
// three bracket kinds each keep their own depth. A delimiter splits only at
// depth 0 outside quotes. A closing bracket without its opener makes the
// search give up; the split then ends, and what is left stays one piece.
//
// Every loop keeps the remainder as the last piece, so a text without the
// delimiter gives one piece (itself) and a text ending in the delimiter gives a
// final empty piece. An empty delimiter never splits.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrk {

// Calls `piece(offset, length)` for each piece of `text` cut at `token`, left
// to right; at most `limit` cuts, no limit when `limit` is below 0.
template <class Piece>
void each_plain_piece(const std::string& text, const std::string& token, int64_t limit,
                      Piece&& piece) {
    if (token.empty()) {
        piece(std::size_t{0}, text.size());
        return;
    }
    std::size_t pos = 0;
    int64_t cuts = 0;
    while (limit < 0 || cuts < limit) {
        const std::size_t hit = text.find(token, pos);
        if (hit == std::string::npos || hit >= text.size() || hit < pos) break;
        piece(pos, hit - pos);
        pos = hit + token.size();
        ++cuts;
    }
    if (pos < text.size()) {
        piece(pos, text.size() - pos);
    } else {
        piece(text.size(), std::size_t{0});
    }
}

// Pieces of `text` cut at `token` (each_plain_piece), as texts.
std::vector<std::string> split_plain(const std::string& text, const std::string& token,
                                     int64_t limit);
// The same, cutting only where `token` stands outside quotes and brackets.
std::vector<std::string> split_scoped_word(const std::string& text, const std::string& token,
                                           int64_t limit);
// Pieces of `text` cut at the character `ch` outside quotes and brackets.
std::vector<std::string> split_scoped_char(const std::string& text, char ch);

}  // namespace vrk
