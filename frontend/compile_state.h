// State of one compile run, shared by all blocks of the tree being compiled.
//
// The outermost `compile_block` creates one of these and hands the pointer to
// every block it compiles (field `compile_state_ptr` of the block, null outside
// compilation). The record carries what must survive from one token to the next
// and from a parent to its children: where reports stand (file stack, line), the
// cache of literal constants of the block being compiled, the little type
// knowledge the compiler has (the cell and the native type name of the last
// expression, the object a dotted call applies to, declared return types), the
// token list of the block so that a statement can consume the tokens behind it,
// and the switch that turns emission off for a dry run.
//
// A nested compile (a child compiled in the middle of its parent) saves and
// restores the per-block part of this record; see compile_nested.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace vrk {

struct vrkblock;
struct vrkvar;

struct compile_state {
    // Literal text to the index of its constant cell in the block being compiled;
    // emptied at the start of each block.
    std::map<std::string, uint32_t> constant_cache;
    // Declared return type of each function block seen so far: the cell that
    // stands for the type, and whether the function returns an array of it.
    std::map<vrkblock*, std::pair<vrkvar*, uint8_t>> return_types;
    vrkvar* last_type = nullptr;     // type cell of the expression just compiled; null when unknown
    vrkvar* call_context = nullptr;  // object the next dotted call applies to (a.f().g())
    std::string last_type_name;      // native type name the last expression produced, or empty
    std::vector<std::string>
        file_stack;           // files being compiled, innermost last; starts with "MEMORY"
    int32_t line_number = 0;  // current source line
    int32_t token_index = 0;  // index of the token under compilation
    std::vector<std::string>* token_list =
        nullptr;                     // the block's tokens; statements may empty later ones
    uint8_t native_member_seen = 0;  // the member rewriting resolved a member of a native type
    uint8_t dry_run = 0;             // while set, emit() appends nothing
    uint32_t token_depth = 0;        // compile_token calls under way, the outermost included
    // Cells of blocks discarded by a failed statement, emptied but kept until
    // the compile ends: routines further up the compile may still hold them.
    std::vector<vrkvar*> discarded;

    compile_state() = default;
    compile_state(const compile_state&) = delete;
    compile_state& operator=(const compile_state&) = delete;
    ~compile_state();
};

}  // namespace vrk
