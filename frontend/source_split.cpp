// Cutting a block's source text at its braces into child blocks: the front
// end's part of `vrkblock::set_source`.
#include <string>

#include "frontend/parser.h"
#include "frontend/compile_context.h"
#include "frontend/text.h"
#include "base/context.h"
#include "base/log.h"
#include "frontend/syntax_error.h"
#include "values/pools.h"
#include "vm/block.h"

namespace vrk {

namespace {

// The first "{" from `from` that opens a body. Double quotes switch
// `in_string` on and off with no regard to backslashes, and the switch keeps
// its state from one search to the next within one text. Outside strings "["
// and "]" are counted, and only a "{" at count 0 opens a body: a list literal
// is never cut into blocks. Single quotes play no part here.
std::size_t find_body_start(const std::string& text, std::size_t from, bool& in_string) {
    int square = 0;
    for (std::size_t i = from; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            in_string = !in_string;
            continue;
        }
        if (in_string) continue;
        if (c == '[') {
            ++square;
        } else if (c == ']') {
            --square;
        } else if (c == '{' && square == 0) {
            return i;
        }
    }
    return npos;
}

// A block's own, writable string in `slot`, allocated when the block has none
// or shares another block's.
std::string& own_string(std::string*& slot, uint8_t& shared) {
    if (!slot || shared) {
        slot = string_new();
        shared = 0;
    }
    return *slot;
}

// Replaces the block's text and children: each brace body becomes a child built
// from the body's text (and so, recursively, its whole subtree), and the body
// is replaced by "{##BLKn}" with n the child's index in this block.
void split_source(vrkblock* block, const std::string& text) {
    if (block->children) {
        for (vrkblock* child : *block->children) block_delete(child);
        block->children->clear();
    }
    block->compiled = 0;
    std::string& code = own_string(block->code_text, block->text_shared);
    code.clear();
    code.reserve(text.size());
    own_string(block->full_source, block->source_shared) = text;

    bool in_string = false;
    std::size_t rest = 0;  // start of the text not yet handled
    for (;;) {
        const std::size_t open = find_body_start(text, rest, in_string);
        if (open == npos) {
            code.append(text, rest, std::string::npos);
            break;
        }
        const std::size_t index = block->children ? block->children->size() : 0;
        code.append(text, rest, open - rest);
        code += '{';
        code += kBlockWord;
        code += std::to_string(index);
        code += '}';

        const std::size_t close = find_closing(text, '{', '}', open + 1);
        if (close == npos) {
            // What is left of the text cannot be split: it is shown and dropped.
            syntaxError("syntax error in string (missing closing bracket '}')\n",
                        compile_context().current_compiling_block);
            log().log("%s", text.c_str() + rest);
            break;
        }
        vrkblock* child = block_new(block->engine, text.substr(open + 1, close - open - 1));
        block->get_children().push_back(child);
        child->parent = block;
        rest = close + 1;
    }
    code.shrink_to_fit();
}

}  // namespace

void install_source_splitter() { set_source_splitter(&split_source); }

}  // namespace vrk
