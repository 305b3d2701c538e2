// How saved forms name blocks: by position in the tree, by name, or through
// one of the engine's tables.
//
// A saved form never holds a pointer. A block is written as a path the reader
// can walk again in its own tree: the position of a child among its parent's
// children, a number of parent steps, or a name that one of the engine's tables
// (registered functions, global variables, named cells, extern functions)
// knows. Run-time copies and class instances among the children are never
// saved, so positions count only the other children, on both sides.
//
// A block that the tree does not own (a function read from stand-alone data,
// a `die` function saved apart from its declaration) is adopted: it is deleted
// when its owner is destroyed.
#pragma once

#include <cstdint>
#include <string>

namespace vrk {

struct vrkblock;
struct vrkvar;
class vrkengine;

// True for a child that saved forms carry (neither a copy nor an instance).
bool is_saved_child(const vrkblock* child);
// Position of `child` among the saved children of `parent`, or -1.
int32_t saved_child_index(const vrkblock* parent, const vrkblock* child);
// The saved child at `index`, or null.
vrkblock* saved_child(const vrkblock* parent, int64_t index);

// The name a block goes by: a native block's text is its name; "" if none.
std::string block_name(const vrkblock* b);

// The language's name search from `from` outward: the block's own names (a
// class's reserved slots excluded), its parents', the engine's global block,
// its named cells, its registered functions. The variable cell, or null.
vrkvar* find_named_cell(vrkblock* from, const std::string& name);
// The block of the function or class that name stands for, or null.
vrkblock* find_named_block(vrkblock* from, const std::string& name);

// The engine's tables by block: the key a block is known under, false if none.
bool named_cell_name(const vrkengine* engine, const vrkblock* target, std::string& name);
bool extern_name(const vrkengine* engine, const vrkblock* target, std::string& name);
// The block of the named cell `name`, or null.
vrkblock* named_cell_block(const vrkengine* engine, const std::string& name);

// Makes `owner` responsible for deleting `b` when it is destroyed.
void adopt_block(vrkblock* owner, vrkblock* b);

}  // namespace vrk
