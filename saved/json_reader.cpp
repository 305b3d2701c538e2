// The JSON text reader: a recursive splitter on top-level commas and colons.
//
// Each level of the text is trimmed and classified by its first character: a
// "{" starts a list of objects, a "[" an array, anything else a list of
// members ("key: value"). Parts are cut with a search that skips what stands
// inside brackets and quotes, nested values are handed down one level, and
// leaves become cells through the literal reading of the language (a quoted
// text is a string, a number is INT or FLOAT, any other text a string). The
// text is copied at every level; that cost is accepted, as there is no
// tokeniser to keep positions in.
//
// The two entry points differ on purpose: the top level fills the record
// directly and knows no `null`, nested levels make their cell a JSON value
// first and read `null` as 0.
#include <exception>
#include <string>
#include <vector>

#include "base/log.h"
#include "saved/json_text.h"
#include "values/cell.h"
#include "values/json.h"

namespace vrk {

namespace {

constexpr std::size_t npos = std::string::npos;

// Deepest nesting of values the reader follows; deeper values stay INT 0.
constexpr int kMaxTextDepth = 256;

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string trim(const std::string& text) {
    std::size_t first = 0;
    while (first < text.size() && is_blank(text[first])) ++first;
    std::size_t last = text.size();
    while (last > first && is_blank(text[last - 1])) --last;
    return text.substr(first, last - first);
}

bool all_blank(const std::string& text) {
    for (char c : text) {
        if (!is_blank(c)) return false;
    }
    return true;
}

// Quote tracking shared by the two searches: a quote not preceded by a
// backslash toggles its state unless the other kind of quote is open.
struct quotes {
    bool dq = false;  // inside double quotes
    bool sq = false;  // inside single quotes

    // Takes the character at `i` into account; true when it is a quote or
    // stands inside quotes, so that the caller must not look at it further.
    bool step(const std::string& text, std::size_t i) {
        const char c = text[i];
        const bool escaped = i > 0 && text[i - 1] == '\\';
        if (c == '"' && !escaped && !sq) {
            dq = !dq;
            return true;
        }
        if (c == '\'' && !escaped && !dq) {
            sq = !sq;
            return true;
        }
        return dq || sq;
    }
    bool open() const { return dq || sq; }
};

// Position of `ch` at depth 0 outside quotes, from `start`. The test comes
// before the depth update of the same position, so an opening bracket can be
// found itself; a depth that falls below 0 ends the search.
std::size_t find_outside(const std::string& text, char ch, std::size_t start) {
    int round = 0;
    int curly = 0;
    int square = 0;
    quotes q;
    for (std::size_t i = start; i < text.size(); ++i) {
        const char c = text[i];
        if (c == ch && !q.open() && round == 0 && curly == 0 && square == 0) return i;
        if (q.step(text, i)) continue;
        switch (c) {
            case '(': ++round; break;
            case ')': --round; break;
            case '{': ++curly; break;
            case '}': --curly; break;
            case '[': ++square; break;
            case ']': --square; break;
            default: break;
        }
        if (round < 0 || curly < 0 || square < 0) return npos;
    }
    return npos;
}

// The parts between successive top-level separators, the last part included.
std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    if (text.empty()) return parts;
    std::size_t from = 0;
    for (;;) {
        const std::size_t hit = find_outside(text, separator, from);
        if (hit == npos) {
            parts.push_back(text.substr(from));
            return parts;
        }
        parts.push_back(text.substr(from, hit - from));
        from = hit + 1;
    }
}

// Position of the `close` that balances an `open` standing before `start`.
std::size_t find_closing(const std::string& text, char open, char close, std::size_t start) {
    int depth = 0;
    quotes q;
    for (std::size_t i = start; i < text.size(); ++i) {
        if (q.step(text, i)) continue;
        const char c = text[i];
        if (c == open) {
            ++depth;
        } else if (c == close) {
            if (depth == 0) return i;
            --depth;
        }
    }
    return npos;
}

void replace_all(std::string& text, const std::string& from, const std::string& to) {
    std::size_t pos = 0;
    while ((pos = text.find(from, pos)) != npos) {
        text.replace(pos, from.size(), to);
        pos += to.size();
    }
}

// The literal reading of a leaf. A malformed number ("-", ".") makes the
// number reading fail; its message is logged and the cell keeps its value.
void set_literal(vrkvar* cell, const std::string& text) {
    try {
        parse_literal(cell, text);
    } catch (const std::exception& e) {
        log().error("%s", e.what());
    }
}

// A key or value of a member, cleaned: blanks off the front, blanks and line
// feeds off the back, one pair of quotes off, the few escapes undone. A quoted
// value is quoted again so that the literal reading makes it a string.
std::string clean_member_part(const std::string& raw, bool is_value) {
    std::size_t first = 0;
    while (first < raw.size() && is_blank(raw[first])) ++first;
    std::size_t last = raw.size();
    while (last > first && (raw[last - 1] == ' ' || raw[last - 1] == '\n')) --last;
    std::string part = raw.substr(first, last - first);

    bool quoted = false;
    if (part.size() >= 2 && ((part.front() == '"' && part.back() == '"') ||
                             (part.front() == '\'' && part.back() == '\''))) {
        part = part.substr(1, part.size() - 2);
        quoted = true;
    }
    replace_all(part, "\\\"", "\"");
    replace_all(part, "\\'", "'");
    replace_all(part, "\\n", "\n");
    replace_all(part, "\\t", "    ");
    if (is_value && quoted) part = "\"" + part + "\"";
    return part;
}

class text_reader {
public:
    // One level of text into a record: the top level (`nested` false) or a
    // value one level down.
    void read_level(const std::string& input, vrkjson* json, bool nested) {
        const std::string text = trim(input);
        if (!text.empty() && text.front() == '{') {
            read_objects(text, json);
        } else if (!text.empty() && text.front() == '[') {
            read_array(text, json, nested);
        } else {
            read_members(text, json, nested);
        }
    }

private:
    // A nested value: the cell becomes a JSON value, emptied, and is filled.
    void read_cell(const std::string& text, vrkvar* cell) {
        if (depth_ >= kMaxTextDepth) {
            if (!too_deep_reported_) log().error("json nested too deeply!");
            too_deep_reported_ = true;
            return;
        }
        vrkjson* json = as_json(cell);
        if (!json) return;
        json_clear(json);
        ++depth_;
        read_level(text, json, true);
        --depth_;
    }

    // The text after the "{" at `brace`, cut at its closing brace (an unclosed
    // brace keeps the rest), read into the cell.
    void read_braced(const std::string& part, std::size_t brace, vrkvar* cell) {
        std::string inner = part.substr(brace + 1);
        const std::size_t close = find_closing(inner, '{', '}', 0);
        if (close != npos) inner.resize(close);
        read_cell(inner, cell);
    }

    // A leaf of a list: the keywords, then the literal reading. An empty part
    // is the empty string.
    static void read_leaf(std::string part, vrkvar* cell, bool null_is_zero) {
        if (part == "true") {
            part = "1";
        } else if (part == "false") {
            part = "0";
        } else if (null_is_zero && part == "null") {
            part = "0";
        } else if (part.empty()) {
            part = "\"\"";
        }
        set_literal(cell, part);
    }

    // "{...}, {...}": a list of objects, kept in order without keys.
    void read_objects(const std::string& text, vrkjson* json) {
        const std::vector<std::string> parts = split(text, ',');
        json_clear(json);
        for (const std::string& raw : parts) {
            const std::string part = trim(raw);
            vrkelement* child = json_append(json, nullptr, nullptr);
            const std::size_t brace = find_outside(part, '{', 0);
            if (brace != npos) {
                read_braced(part, brace, child);
                continue;
            }
            // Object lists know no null.
            read_leaf(part, child, false);
        }
    }

    // "[a, b, ...]": an array. An array directly inside an array is not taken
    // apart: it reads as the string of its text.
    void read_array(std::string text, vrkjson* json, bool nested) {
        text.erase(0, 1);
        if (!text.empty() && text.back() == ']') text.pop_back();
        const std::vector<std::string> parts = split(text, ',');
        json_clear(json);
        if (all_blank(text)) return;
        for (const std::string& raw : parts) {
            const std::string part = trim(raw);
            vrkelement* child = json_append(json, nullptr, nullptr);
            const std::size_t brace = find_outside(part, '{', 0);
            if (brace != npos) {
                read_braced(part, brace, child);
                continue;
            }
            read_leaf(part, child, nested);
        }
    }

    // "key: value, ...": members, found or appended by key.
    void read_members(const std::string& text, vrkjson* json, bool nested) {
        const std::vector<std::string> parts = split(text, ',');
        json_clear(json);
        for (const std::string& part : parts) {
            const std::vector<std::string> pair = split(part, ':');
            if (pair.size() != 2) {
                log().error("malformatted json %s!", text.c_str());
                continue;
            }
            const std::string key = clean_member_part(pair[0], false);
            const std::string value = clean_member_part(pair[1], true);
            if (key.empty()) continue;

            vrkelement* child = json_find(json, key);
            const std::size_t brace = find_outside(value, '{', 0);
            if (brace != npos) {
                read_braced(value, brace, child);
            } else if (find_outside(value, '[', 0) != npos) {
                read_cell(value, child);
            } else {
                read_leaf(value, child, nested);
            }
        }
    }

    int depth_ = 0;                   // nesting of the value being read
    bool too_deep_reported_ = false;  // the depth limit has been reported once
};

}  // namespace

void from_string(vrkjson* json, const std::string& input) {
    if (!json) return;
    json_clear(json);

    std::string text;
    text.reserve(input.size());
    for (char c : input) {
        if (c == '\r') continue;
        if (c == '\t') {
            text += "    ";
            continue;
        }
        text += c;
    }
    text = trim(text);

    // A whole document wrapped in one pair of double quotes reads as if bare.
    if (text.size() > 1 && text.front() == '"') {
        std::size_t next = 1;
        while (next < text.size() && is_blank(text[next])) ++next;
        if (next < text.size() && (text[next] == '{' || text[next] == '"')) {
            text.erase(0, 1);
            if (!text.empty() && text.back() == '"') text.pop_back();
        }
    }

    if (!text.empty() && text.front() == '{') {
        const std::size_t close = find_closing(text, '{', '}', 1);
        if (close == npos) {
            log().error("invalid json!\n%s", text.c_str());
            text.erase(0, 1);
        } else {
            text = text.substr(1, close - 1);
        }
    }

    text_reader reader;
    reader.read_level(text, json, false);
}

}  // namespace vrk
