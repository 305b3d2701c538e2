// The compile driver: text repair, token split, indented bodies, the loop over
// the tokens, `this`/`self` propagation and the compile of the children.
#include "frontend/compile.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "frontend/compile_context.h"
#include "frontend/compile_state.h"
#include "frontend/compiler.h"
#include "frontend/syntax_error.h"
#include "frontend/text.h"
#include "values/pools.h"
#include "vm/block.h"

namespace vrk {

namespace {

bool is_blank_or_newline(char c) { return c == ' ' || c == '\n'; }

std::size_t skip_blanks(const std::string& text, std::size_t pos) {
    while (pos < text.size() && text[pos] == ' ') ++pos;
    return pos;
}

// A body that is followed by another statement gets a ";" behind its "}",
// unless an `else` follows (possibly behind one marker line) or a ";" is there
// already. A blank right behind the "}" is overwritten rather than moved.
void insert_body_semicolons(vrkblock* block, std::string& text) {
    std::size_t b = find_scoped(text, '{', 0);
    while (b != npos && b < text.size()) {
        const std::size_t c = find_closing(text, '{', '}', b + 1);
        if (c == npos) {
            syntaxError("there is a missing '}'!", block);
            text.clear();
            return;
        }
        const std::size_t e = c + 1;
        std::size_t n = skip_blanks(text, e);
        if (n < text.size() && text[n] == '\n') {
            // Pass over the line that follows: it holds the line marker.
            const std::size_t h = n + 1 < text.size() ? find_scoped(text, '\n', n + 1) : npos;
            if (h != npos) n = h + 1;
            n = skip_blanks(text, n);
        }
        const bool else_follows = n + 4 < text.size() && text.compare(n, 4, "else") == 0 &&
                                  (text[n + 4] == '{' || text[n + 4] == '(' ||
                                   is_blank_or_newline(text[n + 4]));
        if (n < text.size() && !else_follows && text[n] != ';') {
            if (text[e] == ' ')
                text[e] = ';';
            else
                text.insert(e, ";");
        }
        b = c + 1 < text.size() ? find_scoped(text, '{', c + 1) : npos;
    }
}

// Every marker line inside the newest token becomes a token of its own, in
// front of what remains of the statement.
void pull_markers(std::vector<std::string>& tokens) {
    for (;;) {
        std::string& token = tokens.back();
        const std::size_t a = token.find('\n');
        if (a == std::string::npos) return;
        const std::size_t z = token.find('\n', a + 1);
        if (z == std::string::npos) {
            log().error("internal compiler error in token %s!", token.c_str());
            token.clear();
            return;
        }
        std::string remainder = token.substr(0, a) + token.substr(z + 1);
        token = token.substr(a + 1, z - a - 1);
        tokens.push_back(std::move(remainder));
    }
}

// Cuts the text at depth-0 semicolons. A last statement without ";" survives
// only when it is the block's one statement. The text is walked by offset:
// each statement is searched for in what is left behind the previous one,
// with nothing copied but the statements themselves.
std::vector<std::string> split_tokens(const std::string& text) {
    std::vector<std::string> tokens;
    std::size_t rest = 0;  // start of the text not yet cut
    std::size_t p = find_scoped_tail(text, ';', rest);
    while (p != npos && p < text.size()) {
        tokens.push_back(text.substr(rest, p - rest));
        pull_markers(tokens);
        rest = p + 1;
        p = find_scoped_tail(text, ';', rest);
    }
    if (tokens.empty() && rest < text.size()) tokens.push_back(text.substr(rest));
    return tokens;
}

// Where the head of an unbraced `if`, `else` or `for` ends.
struct body_head {
    bool found = false;    // the token is such a head
    bool is_else = false;  // it is an `else`
    std::size_t r = 0;     // end of the head (its ")" or the blank behind "else"); 0 if unknown
};

std::size_t closing_paren_behind(const std::string& token, std::size_t open) {
    if (open + 1 > token.size()) return 0;
    const std::size_t r = find_scoped(token, ')', open + 1);
    return r == npos ? 0 : r;
}

body_head recognise_head(const std::string& token, std::size_t w) {
    body_head head;
    const std::size_t size = token.size();
    if (token.compare(w, 2, "if") == 0) {
        const std::size_t o = find_scoped(token, '(', w);
        if (o == npos) return head;
        head.r = closing_paren_behind(token, o);
    } else if (token.compare(w, 4, "else") == 0 && w + 4 < size &&
               (token[w + 4] == ' ' || token[w + 4] == '(' || token[w + 4] == '{')) {
        head.is_else = true;
        const std::size_t k = skip_blanks(token, w + 4);
        head.r = (k < size && token[k] == '(') ? closing_paren_behind(token, k) : w + 4;
    } else if (token.compare(w, 3, "for") == 0 && w + 3 < size &&
               (token[w + 3] == ' ' || token[w + 3] == '(')) {
        const std::size_t o = find_scoped(token, '(', w);
        if (o == npos) return head;
        head.r = closing_paren_behind(token, o);
    } else {
        return head;
    }
    head.found = true;
    return head;
}

// `if`/`else` followed by a blank or "(" (after leading blanks): the previous
// token an indented `else` joins.
bool is_if_or_else_token(const std::string& token) {
    const std::size_t w = leading_blanks(token);
    if (w + 2 < token.size() && token.compare(w, 2, "if") == 0 &&
        (token[w + 2] == ' ' || token[w + 2] == '('))
        return true;
    return w + 4 < token.size() && token.compare(w, 4, "else") == 0 &&
           (token[w + 4] == ' ' || token[w + 4] == '(');
}

// Heads of `if`, `else` and `for` without a braced body take the text behind
// the head and the following tokens that are indented deeper as a new child
// block. Marker tokens have no indentation, so they end such a body.
void gather_indented_bodies(vrkblock* block, std::vector<std::string>& tokens) {
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        std::string& token = tokens[i];
        const std::size_t w = leading_blanks(token);
        if (w + 1 >= token.size()) continue;
        const body_head head = recognise_head(token, w);
        if (!head.found) continue;
        if (find_scoped(token, '{', w) != npos) continue;

        std::size_t j = i + 1;
        while (j < tokens.size()) {
            const std::string& next = tokens[j];
            const std::size_t nw = leading_blanks(next);
            if (nw < next.size() && next[nw] != '{') break;
            ++j;
        }
        if (j == tokens.size()) continue;  // an unbraced head at the very end stays as it is

        std::string body;
        if (head.r != 0 && head.r + 1 < token.size()) {
            body = token.substr(head.r + 1) + ";";
            token.resize(head.r + 1);
        }
        token += "{";
        std::size_t k = i + 1;
        while (k < tokens.size() && leading_blanks(tokens[k]) > w) {
            body += tokens[k];
            body += ";";
            ++k;
        }
        tokens.erase(tokens.begin() + static_cast<std::ptrdiff_t>(i + 1),
                     tokens.begin() + static_cast<std::ptrdiff_t>(k));
        std::string& head_token = tokens[i];
        head_token += add_text_block(block, body);
        head_token += "}";

        if (head.is_else && i >= 1 && is_if_or_else_token(tokens[i - 1])) {
            tokens[i - 1] += head_token;
            tokens.erase(tokens.begin() + static_cast<std::ptrdiff_t>(i));
            --i;
        }
    }
}

// `this` (or `self`) used in a block that is no function is also made known in
// the enclosing blocks up to the function or class that gives it its value.
void propagate_outward(vrkblock* block, const char* name) {
    for (vrkblock* p = block->parent; p; p = p->parent) {
        if (p->parent == p || p->is_class_or_instance()) return;
        p->declare_var(name);
        if (p->is_function) return;
    }
}

void mark_no_count(vrkblock* block, int32_t index) {
    if (index >= 0 && static_cast<std::size_t>(index) < block->vars.size())
        block->vars[static_cast<std::size_t>(index)]->flags |= flag::NO_COUNT;
}

}  // namespace

compile_state::~compile_state() {
    for (vrkvar* cell : discarded) cell_free(cell);
}

void discard_block(vrkblock* b) {
    free_code_operands(b->code);
    b->code.clear();
    // Type knowledge must not keep pointers to the cells about to go.
    if (compile_state* state = b->compile_state_ptr) {
        state->constant_cache.clear();
        state->last_type = nullptr;
        state->call_context = nullptr;
        for (auto it = state->return_types.begin(); it != state->return_types.end();) {
            if (std::find(b->vars.begin(), b->vars.end(), it->second.first) != b->vars.end())
                it = state->return_types.erase(it);
            else
                ++it;
        }
    }
    // The cells are emptied now and freed when the compile ends: a statement
    // that failed deep inside an expression leaves callers up the compile
    // holding cells of this block (a callee, a type, an object to call on).
    compile_state* state = b->compile_state_ptr;
    for (vrkvar*& cell : b->vars) {
        if (cell && state) {
            reset(cell, Tag::INT);
            state->discarded.push_back(cell);
        } else if (cell) {
            cell_free(cell);
        }
        cell = nullptr;
    }
    b->vars.clear();
    // The name table would otherwise point at cells that are gone.
    if (b->names && !b->names_shared) b->names->clear();
    b->this_index = -1;
    b->self_index = -1;
}

std::string add_text_block(vrkblock* block, const std::string& body) {
    const std::size_t index = block->children ? block->children->size() : 0;
    vrkblock::add_child(block, body);
    return std::string(kBlockWord) + std::to_string(index);
}

void compile_nested(vrkblock* parent, vrkblock* child) {
    compile_state* state = parent->compile_state_ptr;
    if (!state) {
        compile_block(child);
        compile_context().current_compiling_block = parent;
        return;
    }
    vrkvar* const call_context = state->call_context;
    vrkvar* const last_type = state->last_type;
    const std::string last_type_name = state->last_type_name;
    const int32_t line_number = state->line_number;
    const std::map<std::string, uint32_t> constant_cache = state->constant_cache;
    const int32_t token_index = state->token_index;
    std::vector<std::string>* const token_list = state->token_list;

    state->call_context = nullptr;
    state->last_type = nullptr;
    state->last_type_name.clear();
    state->line_number = 0;
    child->compile_state_ptr = state;
    compile_block(child);
    child->compile_state_ptr = nullptr;

    state->call_context = call_context;
    state->last_type = last_type;
    state->last_type_name = last_type_name;
    state->line_number = line_number;
    state->constant_cache = constant_cache;
    state->token_index = token_index;
    state->token_list = token_list;
    compile_context().current_compiling_block = parent;
}

bool compile_block(vrkblock* block) {
    vrkcontext& ctx = context();
    compile_context().current_compiling_block = nullptr;
    if (block->compiled) return true;
    block->compiled = 1;
    free_code_operands(block->code);
    block->code.clear();

    std::string text = block->code_text ? *block->code_text : std::string();
    insert_body_semicolons(block, text);
    trim_trailing_blanks(text);
    if (!text.empty() && text.back() == '}') text += ';';
    if (block->code_text && !block->text_shared) *block->code_text = text;

    std::vector<std::string> tokens = split_tokens(text);
    gather_indented_bodies(block, tokens);

    std::unique_ptr<compile_state> owned;
    if (!block->compile_state_ptr) {
        owned = std::make_unique<compile_state>();
        owned->file_stack.push_back("MEMORY");
        block->compile_state_ptr = owned.get();
    }
    compile_state& state = *block->compile_state_ptr;

    if (ctx.debug_info) {
        block->line_table = std::make_unique<std::map<uint32_t, vrkline_entry>>();
        block->file_table = std::make_unique<std::vector<vrkfile_entry>>();
    }
    state.constant_cache.clear();

    for (std::size_t i = 0; i < tokens.size(); ++i) {
        compile_context().current_compiling_block = block;
        state.token_index = static_cast<int32_t>(i);
        state.token_list = &tokens;
        compile_token(block, tokens[i], false, nullptr, false);
        compile_context().current_compiling_block = nullptr;
    }
    // The token list dies with this call.
    state.token_list = nullptr;

    mark_no_count(block, block->this_index);
    mark_no_count(block, block->self_index);
    if (!block->is_function) {
        if (block->this_index >= 0) propagate_outward(block, "this");
        if (block->self_index >= 0) propagate_outward(block, "self");
    }

    if (block->children) {
        // Children made while compiling a child land in that child's own list;
        // this list may still grow from nothing here, so it is read by index.
        for (std::size_t k = 0; k < block->children->size(); ++k) {
            vrkblock* child = (*block->children)[k];
            state.call_context = nullptr;
            state.last_type = nullptr;
            state.last_type_name.clear();
            state.line_number = 1;
            if (!child->compiled) {
                child->compile_state_ptr = &state;
                compile_block(child);
            }
            child->compile_state_ptr = nullptr;
            compile_context().current_compiling_block = block;
        }
    }

    block->compile_state_ptr = nullptr;
    compile_context().current_compiling_block = nullptr;
    return true;
}

}  // namespace vrk
