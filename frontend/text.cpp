// The quote- and bracket-aware text search of the front end.
#include "frontend/text.h"

#include "base/context.h"
#include "base/log.h"
#include "frontend/compile_context.h"
#include "frontend/syntax_error.h"

namespace vrk {

namespace {

// Which kind of quoted stretch the walk is inside. A quote of the other kind
// inside a stretch is an ordinary character; a quote right behind a backslash
// never opens or closes one. The first character of a text has nothing in
// front of it, so a quote there always counts.
struct quote_state {
    bool in_double = false;  // inside "..."
    bool in_single = false;  // inside '...'

    bool open() const { return in_double || in_single; }

    void step(const std::string& text, std::size_t i) {
        const char c = text[i];
        if (c != '"' && c != '\'') return;
        if (i > 0 && text[i - 1] == '\\') return;
        if (c == '"' && !in_single) in_double = !in_double;
        if (c == '\'' && !in_double) in_single = !in_single;
    }
};

// Nesting depth of the three bracket pairs outside quotes.
struct depth_state {
    int round = 0;   // ( )
    int curly = 0;   // { }
    int square = 0;  // [ ]

    bool level() const { return round == 0 && curly == 0 && square == 0; }
    bool negative() const { return round < 0 || curly < 0 || square < 0; }

    void step(char c) {
        switch (c) {
            case '(': ++round; break;
            case ')': --round; break;
            case '{': ++curly; break;
            case '}': --curly; break;
            case '[': ++square; break;
            case ']': --square; break;
            default: break;
        }
    }
};

// A start behind the end of the text cannot be read; the search reports it and
// finds nothing.
bool start_past_end(const std::string& text, std::size_t from, const char* what) {
    if (from <= text.size()) return false;
    log().error("%s: start %zu is behind the end of a text of %zu characters", what, from,
                text.size());
    return true;
}

}  // namespace

namespace {

// The walk of `find_scoped`. Reports show the text from `shown` on.
std::size_t scoped_walk(const std::string& text, char ch, std::size_t from, bool last,
                        std::size_t shown) {
    const std::size_t n = text.size();
    quote_state quotes;
    depth_state depth;
    std::size_t found = npos;
    // The first step is taken even at the very end of the text, where it reads
    // the terminating zero and therefore finds nothing.
    std::size_t i = from;
    do {
        const char c = text[i];
        if (!last && c == ch && depth.level() && !quotes.open()) return i;
        // A quote at the start of a tail has nothing in front of it.
        if (i == shown && (c == '"' || c == '\'')) {
            if (c == '"' && !quotes.in_single) quotes.in_double = !quotes.in_double;
            if (c == '\'' && !quotes.in_double) quotes.in_single = !quotes.in_single;
        } else {
            quotes.step(text, i);
        }
        if (!quotes.open()) depth.step(c);
        if (depth.negative()) {
            const char* tail = text.c_str() + shown;
            if (vrkblock* block = compile_context().current_compiling_block) {
                syntaxError(tail, block);
                log().log("additional info: ");
                log().log("searching for %c in %s", ch, tail);
            } else {
                log().error("invalid braces.\n%s", tail);
            }
            return npos;
        }
        if (last && c == ch && depth.level() && !quotes.open()) found = i;
        ++i;
    } while (i < n);
    return found;
}

}  // namespace

std::size_t find_scoped(const std::string& text, char ch, std::size_t from, bool last) {
    if (start_past_end(text, from, "find_scoped")) return npos;
    return scoped_walk(text, ch, from, last, 0);
}

std::size_t find_scoped_tail(const std::string& text, char ch, std::size_t from) {
    if (start_past_end(text, from, "find_scoped")) return npos;
    return scoped_walk(text, ch, from, false, from);
}

std::size_t find_scoped_text(const std::string& text, const std::string& needle, std::size_t from,
                             bool last) {
    if (start_past_end(text, from, "find_scoped_text")) return npos;
    const std::size_t n = text.size();
    quote_state quotes;
    depth_state depth;
    std::size_t found = npos;
    std::size_t i = from;
    do {
        const char c = text[i];
        quotes.step(text, i);
        if (!quotes.open()) depth.step(c);
        if (depth.negative()) {
            // Outside a compile an unbalanced text is simply not searched.
            if (vrkblock* block = compile_context().current_compiling_block) {
                syntaxError(text.c_str(), block);
                log().log("additional info: ");
                log().log("searching for %s in %s", needle.c_str(), text.c_str());
            }
            return npos;
        }
        if (depth.level() && !quotes.open() && i < n &&
            text.compare(i, needle.size(), needle) == 0) {
            if (!last) return i;
            found = i;
        }
        ++i;
    } while (i < n);
    return found;
}

std::size_t find_closing(const std::string& text, char open, char close, std::size_t from) {
    quote_state quotes;
    int depth = 1;
    for (std::size_t i = from; i < text.size(); ++i) {
        quotes.step(text, i);
        if (quotes.open()) continue;
        const char c = text[i];
        if (c == open) {
            ++depth;
        } else if (c == close) {
            if (--depth == 0) return i;
        }
    }
    return npos;
}

std::vector<std::string> split_scoped(const std::string& text, char ch) {
    std::vector<std::string> pieces;
    std::size_t pos = 0;
    for (;;) {
        const std::size_t hit = find_scoped(text, ch, pos, false);
        if (hit == npos || hit >= text.size()) {
            pieces.push_back(text.substr(pos));
            break;
        }
        pieces.push_back(text.substr(pos, hit - pos));
        pos = hit + 1;
    }
    if (pieces.size() == 1 && pieces.front().empty()) pieces.clear();
    return pieces;
}

void strip_blanks(std::string& text) {
    bool in_double = false;
    bool in_single = false;
    std::size_t out = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"' && !in_single) in_double = !in_double;
        if (c == '\'' && !in_double) in_single = !in_single;
        if (c == ' ' && !in_double && !in_single) continue;
        text[out++] = c;
    }
    text.resize(out);
}

std::size_t find_operator(const std::string& text, std::size_t from) {
    // The order of this list is the whole precedence of the language's binary
    // operators: the first kind found anywhere at depth 0 splits the expression.
    static constexpr const char kOperators[] = "&|<>+-*/^";
    for (const char* op = kOperators; *op; ++op) {
        const std::size_t hit = find_scoped(text, *op, from, false);
        if (hit != npos) return hit;
    }
    return npos;
}

}  // namespace vrk
