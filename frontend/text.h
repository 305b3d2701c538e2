// Quote- and bracket-aware text search, the tool every front-end stage uses.
//
// The language has no lexer: statements are strings that each stage of the
// front end rewrites. To cut a statement at its operators or its semicolons the
// stages search text while skipping what is nested inside brackets or quotes.
// All helpers return a position, or `npos` for "not found". Unbalanced brackets
// are reported against the block being compiled (or, outside a compile, as a
// plain log error) and give `npos`.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vrk {

inline constexpr std::size_t npos = std::string::npos;

// The "##BLK" placeholder word for child bodies.
inline constexpr const char* kBlockWord = "##BLK";
inline constexpr std::size_t kBlockWordLength = 5;

// First (or with `last`, last) position of `ch` at depth 0 outside quotes.
std::size_t find_scoped(const std::string& text, char ch, std::size_t from = 0, bool last = false);
// First position of `ch` at depth 0 outside quotes in the tail of `text` that
// starts at `from`, exactly as `find_scoped` on that tail alone would find it
// (position counted in `text`) and with the same reports, which show the tail.
// Lets a caller walk a long text without copying what is left of it.
std::size_t find_scoped_tail(const std::string& text, char ch, std::size_t from);
// The same for a whole word.
std::size_t find_scoped_text(const std::string& text, const std::string& needle,
                             std::size_t from = 0, bool last = false);
// Position of the `close` that balances an `open` assumed to stand before `from`.
std::size_t find_closing(const std::string& text, char open, char close, std::size_t from);
// Pieces between the depth-0 hits of `ch`; one empty piece gives an empty list.
std::vector<std::string> split_scoped(const std::string& text, char ch);
// Removes every blank outside quotes, in place.
void strip_blanks(std::string& text);
// First hit, in the fixed precedence order "&|<>+-*/^", of an operator at depth 0.
std::size_t find_operator(const std::string& text, std::size_t from = 0);

}  // namespace vrk
