// Cutting a block's source text at its braces into child blocks: the front
// end's part of `vrkblock::set_source`.
//
// Each brace body becomes a child block built from the body's text, and so on
// down the whole subtree. The walk keeps its own stack of blocks being cut
// rather than recursing, so that the depth of a text's nesting never becomes
// the depth of the host stack. Nesting is limited (kMaxBlockDepth): a body that
// would open a deeper level is reported as a syntax error, and the rest of the
// block it stands in is dropped, as after a missing closing brace.
#include <string>
#include <utility>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "frontend/compile_context.h"
#include "frontend/parser.h"
#include "frontend/syntax_error.h"
#include "frontend/text.h"
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

// How many blocks enclose `block`.
int depth_of(const vrkblock* block) {
    int depth = 0;
    for (const vrkblock* p = block->parent; p && p != block && depth <= kMaxBlockDepth;
         p = p->parent)
        ++depth;
    return depth;
}

// The text with the insides of all bodies that lie deeper than `room` levels
// below its own level taken out (the braces of such a body stay, so that the
// cut reports the depth). Only texts that nest that deep are rewritten; the
// point is that a deeply nested text is not copied into every one of the
// blocks above the limit before the limit is found. The nesting is followed as
// the cut follows it (strings by double quotes, bodies only outside "[...]").
bool prune_too_deep(const std::string& text, int room, std::string& pruned) {
    bool in_string = false;
    int square = 0;
    int depth = 0;
    bool changed = false;
    std::size_t copied = 0;  // text before this position is in `pruned` already
    for (std::size_t i = 0; i < text.size(); ++i) {
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
        } else if (square == 0 && c == '}') {
            if (depth > 0) --depth;
        } else if (square == 0 && c == '{') {
            if (depth < room) {
                ++depth;
                continue;
            }
            if (!changed) pruned.reserve(text.size());
            changed = true;
            const std::size_t close = find_closing(text, '{', '}', i + 1);
            pruned.append(text, copied, i + 1 - copied);
            if (close == npos) {
                copied = text.size();
                break;
            }
            copied = close;
            i = close;
        }
    }
    if (changed) pruned.append(text, copied, std::string::npos);
    return changed;
}

// One block whose text is being cut.
struct split_frame {
    vrkblock* block;   // the block
    std::size_t rest;  // start of its text not yet handled
    bool in_string;    // the double-quote switch of the body search
    int depth;         // how many blocks enclose it
};

// Makes `block`'s text `text` and empties it of code and children, ready to be cut.
void prepare(vrkblock* block, std::string text) {
    if (block->children) {
        for (vrkblock* child : *block->children) block_delete(child);
        block->children->clear();
    }
    block->compiled = 0;
    std::string& code = own_string(block->code_text, block->text_shared);
    code.clear();
    code.reserve(text.size());
    own_string(block->full_source, block->source_shared) = std::move(text);
}

// Replaces the block's text and children: each brace body becomes a child built
// from the body's text (and so its whole subtree), and the body is replaced by
// "{##BLKn}" with n the child's index in its block. Blocks are cut in the order
// a recursive cut would take them: a child's subtree is done before its parent
// goes on, so reports come in text order.
void split_source(vrkblock* root, const std::string& given) {
    const int root_depth = depth_of(root);
    std::string pruned;
    const bool was_pruned = prune_too_deep(given, kMaxBlockDepth - root_depth, pruned);
    prepare(root, was_pruned ? pruned : given);

    std::vector<split_frame> stack;
    stack.push_back({root, 0, false, root_depth});
    while (!stack.empty()) {
        split_frame& frame = stack.back();
        vrkblock* block = frame.block;
        const std::string& text = *block->full_source;
        std::string& code = *block->code_text;

        const std::size_t open = find_body_start(text, frame.rest, frame.in_string);
        if (open == npos) {
            code.append(text, frame.rest, std::string::npos);
            code.shrink_to_fit();
            stack.pop_back();
            continue;
        }
        code.append(text, frame.rest, open - frame.rest);
        if (frame.depth >= kMaxBlockDepth) {
            // Nothing more of this block is taken: its code ends here.
            syntaxError(("blocks are nested deeper than " + std::to_string(kMaxBlockDepth) +
                         " levels; the rest of the block is dropped")
                            .c_str(),
                        compile_context().current_compiling_block);
            code.shrink_to_fit();
            stack.pop_back();
            continue;
        }
        const std::size_t index = block->children ? block->children->size() : 0;
        code += '{';
        code += kBlockWord;
        code += std::to_string(index);
        code += '}';

        const std::size_t close = find_closing(text, '{', '}', open + 1);
        if (close == npos) {
            // What is left of the text cannot be split: it is shown and dropped.
            syntaxError("syntax error in string (missing closing bracket '}')\n",
                        compile_context().current_compiling_block);
            log().log("%s", text.c_str() + frame.rest);
            code.shrink_to_fit();
            stack.pop_back();
            continue;
        }
        frame.rest = close + 1;
        const int depth = frame.depth + 1;
        vrkblock* child = block_new(block->engine);
        block->get_children().push_back(child);
        child->parent = block;
        prepare(child, text.substr(open + 1, close - open - 1));
        stack.push_back({child, 0, false, depth});  // `frame` is not used past this point
    }
}

}  // namespace

void install_source_splitter() { set_source_splitter(&split_source); }

}  // namespace vrk
