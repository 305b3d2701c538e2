// List and JSON literals (`[1, a=2, [3]]`), block references ("##BLKn") and
// subscript chains (`a[1]["x"]`).
//
// A list literal is code, not data: it owns one JSON variable of the block,
// which is emptied each time the literal is evaluated and then filled by one
// statement per element (`list:push(x)` or `list["key"]=x`), so that elements
// are evaluated at run time in order and a literal inside a loop starts empty
// on every pass. A nested list is compiled in a body of its own, where its
// variable does not meet the outer one's name.
//
// A subscript chain narrows what it can at compile time: a member of a known
// class becomes CLASS_ACCESS by index, a member of a struct layout the
// element's position; anything else is an INDEX by key or position at run time.
#include <string>
#include <vector>

#include "base/log.h"
#include "frontend/compiler.h"
#include "frontend/emit.h"
#include "frontend/syntax_error.h"
#include "frontend/text.h"

namespace vrk {

namespace {

// Every list literal's variable is entered under this one name: the number in
// it is a counter that never moves, so each literal of a block takes the table
// entry over from the previous one, and only its index matters.
constexpr uint32_t kListCounter = 0;

std::string list_name() { return "LAMBDADATALIST" + std::to_string(kListCounter) + "_I"; }

bool holds_non_space(const std::string& text) {
    return text.find_first_not_of(" \t\n\r") != std::string::npos;
}

bool has_non_digit(const std::string& text) {
    return text.find_first_not_of("0123456789") != std::string::npos;
}

bool is_quoted(const std::string& text) {
    return !text.empty() && (text[0] == '"' || text[0] == '\'');
}

void remove_double_quotes(std::string& text) {
    std::string out;
    for (const char c : text)
        if (c != '"') out += c;
    text = out;
}

// One keyed element `key=value` of a list literal, as the store statement
// that makes it. `::k` (and the old `$k`) key by the value of variable `k`.
std::string keyed_store(vrkblock* b, const std::string& name, std::string key,
                        const std::string& value) {
    std::string target;
    if (starts_with(key, "$")) {
        syntaxWarning(b);
        log().warn(
            "please use '::' instead of '$' to reference to local variables as keys. will be deprecated.");
        target = name + "[" + key.substr(1) + "]";
    } else if (starts_with(key, "::")) {
        target = name + "[" + key.substr(2) + "]";
    } else {
        remove_double_quotes(key);
        target = name + "[\"" + key + "\"]";
    }
    // A list as value is compiled in a body of its own, like a list element.
    if (starts_with(value, "[")) return target + "={" + value + "}";
    return target + "=" + value;
}

}  // namespace

vrkvar* token_list_literal(vrkblock* b, const std::string& token, std::size_t close) {
    const uint32_t d = append_cell(b, Tag::JSON);
    const std::string name = list_name();
    b->get_names()[name] = d;

    // The variable, then the sub-code that empties the JSON on top. Both go
    // into the code even in a dry run.
    b->code.push_back(vrkinstr{static_cast<uint8_t>(Op::LOAD), ref_of(b), d});
    b->code.push_back(vrkinstr{static_cast<uint8_t>(Op::LOAD), 0, 6});

    if (token.size() >= 2) {
        if (close >= npos - 1 || close >= token.size()) {
            syntaxError("syntax error", b);
            log().log("%s", token.c_str());
        } else {
            const std::string body = token.substr(1, close - 1);
            for (std::string piece : split_scoped(body, ',')) {
                if (!holds_non_space(piece)) continue;
                strip_blanks(piece);
                std::size_t e = find_scoped(piece, '=', 0);
                bool colon = false;
                if (e == npos || e >= piece.size()) {
                    e = find_scoped(piece, ':', 0);
                    colon = e != npos && e < piece.size();
                }
                if (e == npos || e >= piece.size()) {
                    trim_leading_blanks(piece);
                    if (starts_with(piece, "["))
                        compile_text(b, name + ":push({" + piece + "})");
                    else
                        compile_text(b, name + ":push(" + piece + ")");
                    continue;
                }
                if (colon) {
                    log().warn(
                        "please refactor your code to use '=' instead of ':' in lists, it will be obsolete in "
                        "the future.");
                    log().warn("%s", token.c_str());
                }
                std::string value = piece.substr(e + 1);
                trim_leading_blanks(value);
                compile_text(b, keyed_store(b, name, piece.substr(0, e), value));
            }
        }
    }

    // A failed element may have emptied the block, the list's cell with it.
    if (d >= b->vars.size()) return nullptr;
    emit(b, Op::LOAD, d, ref_of(b));
    // The finished list is handed over to whatever takes it (a variable, an
    // argument, a return value) rather than copied: the literal's own cell must
    // not go on holding the elements, or an instance in it would live on after
    // the list that took it is gone.
    emit(b, Op::LOAD, load_code::HAND_OVER, 0);
    return b->vars[d];
}

vrkvar* token_block_ref(vrkblock* b, const std::string& token, int32_t* block_index) {
    int32_t number = 0;
    if (!read_decimal(
            token.size() > kBlockWordLength ? token.substr(kBlockWordLength) : std::string(),
            number)) {
        syntaxError("internal error", b);
        log().log("compile error stoi! %s", token.c_str());
        return nullptr;
    }
    const std::size_t children = b->children ? b->children->size() : 0;
    if (number < 0 || static_cast<std::size_t>(number) >= children) {
        syntaxError("internal error", b);
        log().log("blocknum compilation error!");
        return nullptr;
    }
    vrkblock* child = (*b->children)[static_cast<std::size_t>(number)];
    auto& names = b->get_names();
    auto entry = names.find(token);
    if (entry == names.end() || entry->second >= b->vars.size()) {
        // The function cell that stands for the child; constant, so a script
        // cannot overwrite its own body.
        const uint32_t index = append_cell(b, Tag::FUNCTION);
        vrkvar* cell = b->vars[index];
        cell->block = child;
        cell->aux = static_cast<uint16_t>(child->param_count);
        cell->constant = 1;
        entry = names.insert_or_assign(token, index).first;
    }
    if (block_index && *block_index == -2) child->is_function = 1;  // a class body
    emit(b, Op::LOAD, entry->second, ref_of(b));
    if (block_index) *block_index = number;
    return b->vars[entry->second];
}

vrkvar* token_index_chain(vrkblock* b, vrkvar* start, std::vector<std::string>& list,
                          bool is_target) {
    compile_state& state = *b->compile_state_ptr;
    if (!start) start = state.call_context;
    vrkvar* c = start;
    // `this[...]` in a method subscripts the instance of the class it is
    // written in.
    if (start && b->this_index >= 0 && start == b->this_var()) {
        if (vrkvar* declared = enclosing_class_cell(b)) c = declared;
    }
    state.call_context = nullptr;

    const vrkvar* taken = nullptr;  // the array-typed cell whose index was just taken
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::string& s = list[i];
        strip_blanks(s);
        bool numeric = false;
        bool array_index = false;
        std::string type_name;

        if (c) {
            c = deref(c);
            if (c->type == Tag::FUNCTION && c->block) {
                if (const auto* declared = declared_return_type(b, c->block)) c = declared->first;
            }
        }
        if (c && (c->flags & flag::KEEP_HINT) && c != taken) {
            // The subscript indexes an array of that type; the type stays for
            // the element.
            taken = c;
            array_index = true;
        }

        if (c && !array_index) {
            if (vrkblock* cls = known_class(c); cls && !s.empty() && !is_quoted(s)) {
                if (has_non_digit(s)) {
                    int64_t index = -1;
                    if (find_member(b, cls, s, index)) {
                        log().log("class member %s", s.c_str());
                        emit(b, Op::CLASS_ACCESS, index, 0);
                        c = cls->vars[static_cast<std::size_t>(index)];
                        state.last_type = c;
                        state.last_type_name.clear();
                        continue;
                    }
                    syntaxError("UNKNOWN_MEMBER", b);
                    log().error("cannot find member %s in class!", s.c_str());
                } else {
                    int32_t number = -1;
                    if (read_decimal(s, number) && number >= 0 &&
                        static_cast<std::size_t>(number) < cls->vars.size()) {
                        c = cls->vars[static_cast<std::size_t>(number)];
                        emit(b, Op::CLASS_ACCESS, number, 0);
                        state.last_type = c;
                        state.last_type_name.clear();
                        continue;
                    }
                }
            } else if (c->type == Tag::JSON || (c->flags & flag::CLASS_HINT)) {
                if (c->type == Tag::JSON && !c->value.json) {
                    syntaxError("JSON_ERROR", b);
                    log().log("cannot parse json: %s", s.c_str());
                    return nullptr;
                }
                if (!s.empty() && has_non_digit(s)) {
                    int64_t position = -1;
                    if (vrkvar* member = layout_member(c, s, position)) {
                        log().log("struct member %s", s.c_str());
                        s = std::to_string(position);
                        numeric = true;
                        c = member;
                    }
                } else if (!s.empty()) {
                    int32_t number = -1;
                    if (read_decimal(s, number)) {
                        if (vrkvar* member = layout_member_at(c, number)) {
                            c = member;
                            numeric = true;
                        }
                    }
                }
            } else if (c->flags & (flag::VALUE_HINT | kNativeValueFlag)) {
                std::string type = c->type == Tag::STRING && c->value.str ? *c->value.str
                                                                          : state.last_type_name;
                std::string key = s;
                if (is_quoted(key) && key.size() >= 2) key = key.substr(1, key.size() - 2);
                native_member hit;
                if (find_native_member(type, key, hit)) {
                    state.native_member_seen = 1;
                    if (!hit.position.empty()) s = hit.position;
                    type_name = hit.result_type;
                    numeric = true;
                }
            }
        }

        // The subscript itself, read or (for the last one of a target) selected
        // for a store.
        emit(b, Op::PUSH, 1, 0);
        compile_text(b, s);
        emit(b, Op::INDEX, is_target && i + 1 == list.size() ? -1 : 0, 0);

        if (!numeric && !array_index) c = nullptr;
        state.last_type = c;
        state.last_type_name = type_name;
    }
    return c;
}

}  // namespace vrk
