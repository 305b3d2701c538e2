// compile_token: the tests of a token in their fixed order, binary operators,
// comparisons and compound assignments, formatted strings, literals and the
// command form.
#include <exception>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "frontend/compile.h"
#include "frontend/compiler.h"
#include "frontend/emit.h"
#include "frontend/syntax_error.h"
#include "frontend/text.h"
#include "values/pools.h"

namespace vrk {

namespace {

// Most compile_token calls under way at once. A nested list literal takes four
// of them per level, an `if` body two; no script comes near this.
constexpr uint32_t kMaxTokenDepth = 500;

// Counts one compile_token call for as long as it is under way.
struct depth_count {
    uint32_t& depth;
    explicit depth_count(uint32_t& d) : depth(d) { ++depth; }
    ~depth_count() { --depth; }
    depth_count(const depth_count&) = delete;
    depth_count& operator=(const depth_count&) = delete;
};

bool is_line_space(char c) { return c == '\n' || c == '\r' || c == ' ' || c == '\t'; }

// Control characters and white space go from the front, white space
// from the back, until neither end changes.
void trim_token(std::string& token) {
    while (!token.empty()) {
        bool changed = false;
        const unsigned char first = static_cast<unsigned char>(token.front());
        if (first < 33 || first == 127) {
            token.erase(0, 1);
            changed = true;
        }
        if (!token.empty() && is_line_space(token.back())) {
            token.pop_back();
            changed = true;
        }
        if (!changed) break;
    }
    for (const char c : {'\n', '\r', ' ', '\t'}) {
        const std::size_t first = token.find_first_not_of(c);
        if (first == std::string::npos) {
            token.clear();
            return;
        }
        const std::size_t last = token.find_last_not_of(c);
        token = token.substr(first, last - first + 1);
    }
}

bool only_digits_dots_blanks(const std::string& text) {
    return text.find_first_not_of("0123456789. ") == std::string::npos;
}

bool only_digits_dots(const std::string& text) {
    return text.find_first_not_of("0123456789.") == std::string::npos;
}

// The split point: the first depth-0 "=", "(" or "{". A "(" gives way to a later "="
// that is part of a comparison or compound assignment, so `f(x) == 1` splits at
// the "=" and `f(x) = 1` at the parenthesis.
std::size_t split_point(const std::string& token) {
    std::size_t s = npos;
    for (const char c : {'=', '(', '{'}) {
        const std::size_t hit = find_scoped(token, c, 0);
        if (hit < s) s = hit;
    }
    if (s != npos && token[s] == '(') {
        const std::size_t q = find_scoped(token, '=', 0);
        if (q != npos && q > 0 && q < token.size()) {
            const char before = token[q - 1];
            const bool next_is_eq = q + 1 < token.size() && token[q + 1] == '=';
            const bool plain = std::string("!><+-*/^").find(before) == std::string::npos &&
                               !next_is_eq;
            if (!plain) s = q;
        }
    }
    return s;
}

// The left operand of an arithmetic operator is stored into a fresh hidden
// variable, which then receives the result.
void store_into_hidden(vrkblock* b) {
    const uint32_t index = append_cell(b);
    emit(b, Op::SET, index, ref_of(b));
}

void report_unknown(vrkblock* b, const std::string& token) {
    syntaxError("UNKNOWN_VARIABLE", b);
    log().error("%s is not a variable name nor a constant.", token.c_str());
}

// `op` as an arithmetic pair: left; T; OP_TMP; right; OP.
vrkvar* arithmetic(vrkblock* b, const std::string& left, const std::string& right, Op tmp, Op op,
                   int32_t* block_index) {
    compile_text(b, left, block_index);
    store_into_hidden(b);
    emit(b, tmp, 0, 0);
    vrkvar* result = compile_text(b, right, block_index);
    emit(b, op, 0, 0);
    return result;
}

// A comparison: left; ARG (keep the left value); right; CMP code.
vrkvar* comparison(vrkblock* b, const std::string& left, const std::string& right, int64_t code,
                   int32_t* block_index) {
    compile_text(b, left, block_index);
    emit(b, Op::ARG, 0, 1);
    vrkvar* result = compile_text(b, right, block_index);
    emit(b, Op::CMP, code, ref_of(b));
    return result;
}

// A binary operator: the token is cut at the first operator kind found at depth 0.
vrkvar* binary_operator(vrkblock* b, const std::string& token, std::size_t o,
                        int32_t* block_index) {
    const std::string left = token.substr(0, o);
    const std::string right = o + 1 < token.size() ? token.substr(o + 1) : std::string();
    // A class on the left takes the operator as a call of its operator function.
    const bool step = (token[o] == '+' || token[o] == '-') && !right.empty() &&
                      right[0] == token[o];
    if (vrkvar* call = nullptr;
        !left.empty() && !step && class_operator(b, token[o], left, right, block_index, call))
        return call;
    switch (token[o]) {
        case '+':
            if (starts_with(right, "+")) {
                vrkvar* result = compile_text(b, left, block_index);
                emit(b, Op::INC, 0, ref_of(b));
                return result;
            }
            return arithmetic(b, left, right, Op::ADD_TMP, Op::ADD, block_index);
        case '-':
            if (left.empty()) {
                // Unary minus exists for constants only.
                const uint32_t index = append_cell(b);
                vrkvar* cell = b->vars[index];
                if (!fill_literal(cell, token)) report_unknown(b, token);
                cell->constant = 1;
                emit(b, Op::LOAD, index, ref_of(b));
                return cell;
            }
            if (starts_with(right, "-")) {
                vrkvar* result = compile_text(b, left, block_index);
                emit(b, Op::DEC, 0, ref_of(b));
                return result;
            }
            return arithmetic(b, left, right, Op::SUB_TMP, Op::SUB, block_index);
        case '*': return arithmetic(b, left, right, Op::MULT_TMP, Op::MULT, block_index);
        case '/': return arithmetic(b, left, right, Op::DIV_TMP, Op::DIV, block_index);
        case '^': return arithmetic(b, left, right, Op::EXP_TMP, Op::EXP, block_index);
        case '>': return comparison(b, left, right, cmp_code::GREATER, block_index);
        case '<': return comparison(b, left, right, cmp_code::LESS, block_index);
        case '|':
        case '&': {
            const char c = token[o];
            if (!right.empty() && right[0] == c)
                return comparison(b, left, right.substr(1), c == '|' ? cmp_code::OR : cmp_code::AND,
                                  block_index);
            // Like the arithmetic operators, the bit operators get a hidden result
            // variable: without it the result would land in the left operand's own
            // cell and `6 | 3` would turn the constant 6 into 7 for good.
            return arithmetic(b, left, right, Op::BIT_TMP, c == '|' ? Op::BIT_OR : Op::BIT_AND,
                              block_index);
        }
        default: return nullptr;
    }
}

// A token that opens a body: `else {...}`, or a block in text or as
// a placeholder.
vrkvar* body_token(vrkblock* b, const std::string& token, std::string& right, int32_t* block_index,
                   bool lazy) {
    const std::size_t c = find_closing(right, '{', '}', 0);
    if (starts_with(token, "else")) {
        // Text behind the closing brace is ignored.
        if (c != npos) right.resize(c);
        int32_t index = 0;
        compile_text(b, right, &index);
        emit(b, Op::RUN_CHILD, index, ref_of(b));
        emit(b, Op::JMP, 0, ref_of(b));
        return nullptr;
    }
    std::string behind = c == npos ? std::string() : right.substr(c + 1);
    std::string inside = c == npos ? right : right.substr(0, c);
    trim_leading_blanks(behind);
    trim_leading_blanks(inside);
    vrkvar* result = nullptr;
    if (!inside.empty()) {
        if (starts_with(inside, kBlockWord)) {
            result = compile_text(b, inside, block_index);
        } else {
            const std::string name = add_text_block(b, inside);
            const int32_t index = static_cast<int32_t>(b->children->size() - 1);
            if (lazy) {
                result = compile_text(b, name, block_index);
            } else {
                // An anonymous block in plain text runs in line and is compiled
                // now; the constants of this block survive the nested compile.
                emit(b, Op::RUN_CHILD, index, ref_of(b));
                compile_nested(b, (*b->children)[static_cast<std::size_t>(index)]);
            }
        }
    }
    if (!behind.empty()) result = compile_text(b, behind, block_index);
    return result;
}

// The command form `name a b, c`: `name(a,b)` then `name(c)`. True when the
// token had that form and has been compiled.
bool command_form(vrkblock* b, const std::string& token, bool in_class, int32_t* block_index,
                  bool lazy, bool negate, bool invert) {
    const std::size_t blank = find_scoped(token, ' ', 0);
    if (blank == npos || blank + 1 >= token.size()) return false;
    std::string name = token.substr(0, blank);
    strip_blanks(name);
    const std::string args = token.substr(blank + 1);
    if (name.empty() || args.empty()) return false;
    if (name == "param" || name == "global" || name == "extern" || name == "var") return false;
    if (args[0] == '[' || args[0] == '(') return false;
    for (std::string piece : split_scoped(args, ',')) {
        trim_blanks(piece);
        std::string joined;
        const std::vector<std::string> words = split_scoped(piece, ' ');
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (i) joined += ",";
            joined += words[i];
        }
        compile_token(b, name + "(" + joined + ")", in_class, block_index, lazy);
    }
    if (negate) emit(b, Op::NOT, 0, 0);
    if (invert) emit(b, Op::INVERT, 0, 0);
    return true;
}

// Formatted string `f"a{{x}}b"`: compiled as the text `"a"+(x)+"b"`. False
// when a "}}" is missing; the token is then a constant.
bool formatted_string(vrkblock* b, const std::string& token, const std::string& raw_token,
                      bool in_class, int32_t* block_index, bool lazy, vrkvar*& result) {
    const std::size_t first = token.find('"');
    const std::size_t last = token.rfind('"');
    std::string inner = (first != std::string::npos && last > first)
                            ? token.substr(first + 1, last - first - 1)
                            : std::string();
    std::string text = "\"";
    for (;;) {
        const std::size_t a = inner.find("{{");
        if (a == std::string::npos) break;
        const std::size_t close = inner.find("}}", a);
        if (close == std::string::npos) {
            syntaxError("cannot find closing }} in formatted string", b);
            log().error("string was: %s", raw_token.c_str());
            return false;
        }
        text += inner.substr(0, a) + "\"+(" + inner.substr(a + 2, close - a - 2) + ")+\"";
        inner = inner.substr(close + 2);
    }
    text += inner + "\"";
    result = compile_token(b, text, in_class, block_index, lazy);
    return true;
}

void replace_escaped_newlines(std::string& text) {
    std::size_t p = text.find("\\n");
    while (p != std::string::npos) {
        text.replace(p, 2, "\n");
        p = text.find("\\n", p + 1);
    }
}

// The cell `this` or `self` of this block, created on first use.
uint32_t own_self_cell(vrkblock* b, const std::string& name) {
    int32_t& slot = name == "this" ? b->this_index : b->self_index;
    if (slot < 0 || static_cast<std::size_t>(slot) >= b->vars.size()) {
        const uint32_t index = append_cell(b);
        b->vars[index]->flags |= flag::NO_COUNT;
        slot = static_cast<int32_t>(index);
        b->get_names()[name] = index;
    }
    return static_cast<uint32_t>(slot);
}

// Atoms: names, literals and subscripted names.
vrkvar* atom(vrkblock* b, std::string token, const std::string& raw_token, bool in_class,
             int32_t* block_index, bool lazy) {
    compile_state& state = *b->compile_state_ptr;
    trim_leading_blanks(token);
    bool negate = false;
    bool invert = false;
    if (starts_with(token, "!")) {
        negate = true;
        token.erase(0, 1);
        trim_leading_blanks(token);
    }
    if (starts_with(token, "~")) {
        invert = true;
        token.erase(0, 1);
        trim_leading_blanks(token);
    }
    trim_trailing_blanks(token);

    if (command_form(b, token, in_class, block_index, lazy, negate, invert)) return nullptr;

    trim_leading_blanks(token);
    bool by_reference = false;
    if (starts_with(token, "#")) {
        by_reference = true;
        token.erase(0, 1);
    }
    int deref_count = 0;
    while (starts_with(token, "$")) {
        ++deref_count;
        token.erase(0, 1);
    }
    if (!only_digits_dots(token)) {
        if (needs_this(b, token)) {
            log().warn("added missing 'this' for class member %s", token.c_str());
            token = "this." + token;
        }
        if (find_scoped(token, '.', 0) != npos) rewrite_member_path(b, token);
    }
    const std::size_t n = find_scoped(token, '[', 0);

    if (n == npos) {
        int64_t index = -1;
        vrkblock* owner = nullptr;
        if (vrkvar* v = find_variable(b, token, &index, &owner)) {
            if (!owner || index < 0) {
                // A named cell of the engine has no address an instruction
                // could name.
                log().error("%s cannot be loaded here", token.c_str());
                return v;
            }
            emit(b, Op::LOAD, index, ref_of(owner));
            for (int i = 0; i < deref_count; ++i) emit(b, Op::DEREF, 0, 0);
            if (by_reference) emit(b, Op::MAKE_REF, 0, 0);
            if (negate) emit(b, Op::NOT, 0, 0);
            if (invert) emit(b, Op::INVERT, 0, 0);
            return v;
        }

        const bool self_name = token == "this" || token == "self";
        bool fresh = false;
        uint32_t index32 = 0;
        if (self_name) {
            index32 = own_self_cell(b, token);
        } else if (auto hit = state.constant_cache.find(token);
                   hit != state.constant_cache.end() && hit->second < b->vars.size()) {
            index32 = hit->second;
        } else {
            index32 = append_cell(b);
            state.constant_cache[token] = index32;
            fresh = true;
        }
        vrkvar* cell = b->vars[index32];

        if (fresh && find_scoped(token, ' ', 0) != npos) {
            // `type name` with a type nobody knows: a declaration.
            std::string rest = token.substr(find_scoped(token, ' ', 0) + 1);
            strip_blanks(rest);
            return compile_token(b, rest + "=undefined", in_class, nullptr, lazy);
        }

        bool constant_text = false;
        if (starts_with(token, "f") && find_scoped(token, '"', 0) != npos) {
            vrkvar* result = nullptr;
            if (formatted_string(b, token, raw_token, in_class, block_index, lazy, result))
                return result;
            if (fresh) fill_literal(cell, token);
            cell->constant = 1;
            constant_text = true;
        }
        if (!constant_text) {
            if (fresh && !self_name) {
                replace_escaped_newlines(token);
                if (!fill_literal(cell, token)) report_unknown(b, token);
                cell->constant = 1;
            } else if (!self_name) {
                cell->constant = 1;
            }
        }
        emit(b, Op::LOAD, index32, ref_of(b));
        if (negate) emit(b, Op::NOT, 0, 0);
        if (invert) emit(b, Op::INVERT, 0, 0);
        return cell;
    }

    const std::string name = token.substr(0, n);
    std::vector<std::string> list;
    if (!collect_subscripts(token, n, list)) {
        syntaxError("JSON_ERROR", b);
        log().log("%s", token.c_str());
    }
    vrkvar* result = compile_text(b, name, block_index);
    if (!list.empty()) token_index_chain(b, result, list, false);
    emit(b, Op::RESET, 0, 0);
    for (int i = 0; i < deref_count; ++i) emit(b, Op::DEREF, 0, 0);
    if (by_reference) emit(b, Op::MAKE_REF, 0, 0);
    if (negate) emit(b, Op::NOT, 0, 0);
    if (invert) emit(b, Op::INVERT, 0, 0);
    return nullptr;
}

// Keywords that emit without looking further.
bool keyword(vrkblock* b, const std::string& token, vrkvar*& result) {
    if (token == "return") {
        result = compile_text(b, "0");
        emit(b, Op::LOAD, load_code::RETURN, 0);
        return true;
    }
    if (starts_with(token, "return ")) {
        result = compile_text(b, token.substr(token.find(' ') + 1));
        emit(b, Op::LOAD, load_code::RETURN, 0);
        return true;
    }
    struct fixed {
        const char* text;
        Op op;
        int64_t arg;
        bool block_ref;
    };
    static constexpr fixed kFixed[] = {
        {"break", Op::BREAK, 0, true},
        {"continue", Op::BREAK, 1, true},
        {"true", Op::LOAD, load_code::TRUE, false},
        {"false", Op::LOAD, load_code::FALSE, false},
        {"undefined", Op::LOAD, load_code::UNDEFINED, false},
        {"none", Op::LOAD, load_code::NONE, false},
        {"None", Op::LOAD, load_code::NONE, false},
    };
    for (const fixed& f : kFixed) {
        if (token == f.text) {
            emit(b, f.op, f.arg, f.block_ref ? ref_of(b) : 0);
            result = nullptr;
            return true;
        }
    }
    return false;
}

// "##BLKn", and a child that reports in this file.
void block_placeholder(vrkblock* b, const std::string& token, int32_t* block_index) {
    compile_state& state = *b->compile_state_ptr;
    token_block_ref(b, token, block_index);
    if (!block_index || *block_index < 0 || !b->children ||
        static_cast<std::size_t>(*block_index) >= b->children->size() || state.file_stack.empty())
        return;
    vrkblock* child = (*b->children)[static_cast<std::size_t>(*block_index)];
    if (!child->code_text || child->text_shared) {
        child->code_text = string_new();
        child->text_shared = 0;
    }
    std::string& text = *child->code_text;
    if (starts_with(text, "\n##PUSHN=")) return;
    text.insert(0, "\n##PUSHN=" + state.file_stack.back() + "\n;");
    text += ";\n##LN=" + std::to_string(state.line_number) + "\n;";
    text += ";\n##POPN\n;";
}

}  // namespace

bool fill_literal(vrkvar* cell, const std::string& text) {
    try {
        return parse_literal(cell, text);
    } catch (const std::exception& e) {
        // A malformed number would end the process; it is reported instead.
        log().error("%s: %s", e.what(), text.c_str());
        return false;
    }
}

bool read_decimal(const std::string& text, int32_t& out) {
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    const std::size_t digits = i;
    int64_t value = 0;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
        value = value * 10 + (text[i] - '0');
        if (value > int64_t{INT32_MAX} + 1) return false;
        ++i;
    }
    if (i == digits) return false;
    if (negative) value = -value;
    if (value > INT32_MAX || value < INT32_MIN) return false;
    out = static_cast<int32_t>(value);
    return true;
}

bool collect_subscripts(const std::string& token, std::size_t open,
                        std::vector<std::string>& list) {
    std::size_t pos = open;
    while (pos != npos && pos < token.size()) {
        const std::size_t close = find_scoped(token, ']', pos + 1);
        if (close == npos || close >= token.size()) return false;
        list.push_back(token.substr(pos + 1, close - pos - 1));
        pos = close + 1 < token.size() ? find_scoped(token, '[', close + 1) : npos;
    }
    return true;
}

vrkvar* compile_token(vrkblock* b, std::string token, bool in_class, int32_t* block_index,
                      bool lazy) {
    if (!b->compile_state_ptr) {
        log().error("token compiled outside of a compile: %s", token.c_str());
        return nullptr;
    }
    compile_state& state = *b->compile_state_ptr;

    // Every nested token costs host stack. Text nested beyond any script's need
    // (hundreds of brackets, or a command form whose first blank stands inside
    // quotes, which rewrites itself into a longer token of the same shape
    // without end) is reported and left out instead of exhausting the stack.
    if (state.token_depth >= kMaxTokenDepth) {
        syntaxError("expression nested too deeply", b);
        log().error("tokens nest deeper than %u levels, the innermost is left out", kMaxTokenDepth);
        return nullptr;
    }
    const depth_count nesting(state.token_depth);

    // Trim.
    trim_token(token);
    if (token.empty()) return nullptr;

    // Markers of file and line.
    if (starts_with(token, "##PUSHN=")) {
        state.file_stack.push_back(token.substr(8));
        return nullptr;
    }
    if (starts_with(token, "##POPN")) {
        if (state.file_stack.size() >= 2) state.file_stack.pop_back();
        return nullptr;
    }
    if (starts_with(token, "##LN=")) {
        int32_t line = 0;
        if (read_decimal(token.substr(5), line)) state.line_number = line;
        return nullptr;
    }

    // A comma list is a sequence of statements, unless ":=" owns the commas.
    if (find_scoped_text(token, ":=", 0) == npos) {
        const std::size_t c = find_scoped(token, ',', 0);
        if (c != npos && c < token.size()) {
            compile_text(b, token.substr(0, c));
            return compile_text(b, token.substr(c + 1));
        }
    }

    // A list literal.
    trim_blanks(token);
    if (token.size() >= 2 && token[0] == '[') {
        const std::size_t close = find_scoped(token, ']', 1);
        if (close != npos && close < token.size() && all_blanks(token.substr(close + 1)))
            return token_list_literal(b, token, close);
    }

    std::string raw_token = token;

    // A child block's placeholder.
    if (starts_with(token, kBlockWord)) {
        block_placeholder(b, token, block_index);
        return nullptr;
    }

    // Keywords.
    vrkvar* result = nullptr;
    if (keyword(b, token, result)) return result;

    // The split point.
    std::size_t s = split_point(token);
    std::string left = s == npos ? token : token.substr(0, s);
    std::string right = s == npos ? std::string() : token.substr(s + 1);
    trim_blanks(left);
    trim_blanks(right);

    // Binary operators. They are looked for whether or not a split point
    // exists; only a "=" in a token without "&&" and "||" binds looser.
    if (!only_digits_dots_blanks(token) && find_operator(token, 0) != npos) {
        const bool assignment_first = s != npos && token[s] == '=' &&
                                      token.find("&&") == std::string::npos &&
                                      token.find("||") == std::string::npos;
        if (!assignment_first) {
            std::size_t o = find_operator(token, 0);
            while (o != npos && o + 1 < token.size() && token.compare(o, 2, "->") == 0)
                o = o + 2 <= token.size() ? find_operator(token, o + 2) : npos;
            if (o != npos && o < token.size()) return binary_operator(b, token, o, block_index);
            return atom(b, token, raw_token, in_class, block_index, lazy);
        }
    }

    // The "=" family.
    if (s != npos && s != 0 && token[s] == '=') {
        if (s + 1 < token.size()) {
            const char before = token[s - 1];
            const bool next_is_eq = token[s + 1] == '=';
            if (std::string("+-*/><^").find(before) == std::string::npos && before != '!' &&
                !next_is_eq)
                return token_assign(b, token, raw_token, block_index, left, right);
            return token_compound(b, s, token, raw_token, block_index, left, right);
        }
    }

    // Bodies, and atoms when there is no split point.
    if (s == npos || token[s] != '(') {
        if (token != "else" && (s == npos || token[s] != '{')) {
            if (s != npos) return nullptr;
            return atom(b, token, raw_token, in_class, block_index, lazy);
        }
        return body_token(b, token, right, block_index, lazy);
    }

    // Calls and statements.
    return token_call(b, s, in_class, token, raw_token, block_index, left, right);
}

vrkvar* token_compound(vrkblock* b, std::size_t s, std::string& token, std::string& raw_token,
                       int32_t* block_index, std::string& left, std::string& right) {
    (void)raw_token;
    compile_state& state = *b->compile_state_ptr;
    if (s + 1 < token.size() && token[s + 1] == '=') {
        // `==` and `===`: the right operand is evaluated first.
        const bool strict = s + 2 < token.size() && token[s + 2] == '=';
        right.erase(0, std::min<std::size_t>(strict ? 2 : 1, right.size()));
        compile_text(b, right, block_index);
        emit(b, Op::ARG, 0, 1);
        compile_text(b, left, block_index);
        emit(b, Op::CMP, strict ? cmp_code::STRICT_EQUAL : cmp_code::EQUAL, ref_of(b));
        return nullptr;
    }
    const char before = s > 0 ? token[s - 1] : '\0';
    if (!left.empty()) left.pop_back();
    switch (before) {
        case '!': comparison(b, left, right, cmp_code::NOT_EQUAL, block_index); return nullptr;
        case '>': comparison(b, left, right, cmp_code::GREATER_EQUAL, block_index); return nullptr;
        case '<': comparison(b, left, right, cmp_code::LESS_EQUAL, block_index); return nullptr;
        case '+':
        case '-':
        case '*':
        case '/':
        case '^': break;
        default:
            if (!right.empty()) right.pop_back();
            return nullptr;
    }

    // A compound assignment. A dry run tells whether the target ends in a
    // member of a native type, which cannot take the operator in place.
    const uint8_t outer_dry_run = state.dry_run;
    state.native_member_seen = 0;
    state.dry_run = 1;
    compile_text(b, left, block_index);
    state.dry_run = outer_dry_run;

    Op tmp = Op::ADD_TMP;
    Op op = Op::ADD;
    switch (before) {
        case '-':
            tmp = Op::SUB_TMP;
            op = Op::SUB;
            break;
        case '*':
            tmp = Op::MULT_TMP;
            op = Op::MULT;
            break;
        case '/':
            tmp = Op::DIV_TMP;
            op = Op::DIV;
            break;
        case '^':
            tmp = Op::EXP_TMP;
            op = Op::EXP;
            break;
        default: break;
    }
    if (!state.native_member_seen) {
        compile_text(b, left, block_index);
        emit(b, tmp, 0, 0);
        compile_text(b, right, block_index);
        emit(b, op, 0, 0);
        return nullptr;
    }
    const std::string rewritten = left + "=" + left + std::string(1, before) + right;
    log().log("transforming extern class operation...");
    log().log("%s", rewritten.c_str());
    return compile_text(b, rewritten, block_index);
}

}  // namespace vrk
