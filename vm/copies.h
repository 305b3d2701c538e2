// Run-time copies of blocks: recursion, second callers, and class instances.
//
// A block is its own activation record, so a block that is busy cannot be
// entered again. A call that finds its function busy runs a copy of it, and a
// class blueprint becomes an instance by being copied. A copy for a call is
// made the way a compiled program is loaded: the source block is written into
// its saved record in memory and a fresh block is read back from it. That one
// path carries everything a block holds (constants, hidden variables,
// children, nested classes). An instance takes only the data, and takes it
// straight from the blueprint, cell by cell, following the record's rules so
// that the result is the one the record would give; a blueprint whose data
// holds something only the record carries exactly goes through the record. References the source's code makes to itself and to its
// own children come back pointing into the copy; references to the blocks
// that enclose it stay pointing there, which is how a copy still reads and
// writes the variables of its enclosing blocks.
//
// A copy shares its source's text and name table, and owns its code,
// variables, stack and children. Copies made for calls are kept in the
// source's `copies` and reused as soon as they are idle, so a recursion of
// depth n leaves n copies behind, living as long as the source does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vrk {

struct vrkvar;
struct vrkblock;

// `owner` of clone_block meaning "attach the copy nowhere".
inline vrkblock* const kNoOwner = reinterpret_cast<vrkblock*>(~uintptr_t{0});

// Bit of `options` of a function declared `locked`: a busy one is not copied,
// its callers wait for it instead.
inline constexpr uint8_t kLockedOption = 0x01;

// Flag of a parameter cell that still is the function's own: no argument has
// taken its place. A default applies to such a parameter when no caller's
// binding tells how many arguments were passed.
inline constexpr uint16_t kParameterFlag = 0x2000;

// Beyond this many copies of one function every further copy is reported;
// the copy is made all the same.
inline constexpr std::size_t kCopyWarningLimit = 1000;

// Which way clone_block takes the data of an instance.
enum class CopyPath : uint8_t {
    direct,       // cell by cell where possible, else through the record
    record_only,  // always through the saved record (for comparisons)
};

// A copy of `source`. `owner` null: the copy becomes a child of the source's
// parent; kNoOwner: it is attached nowhere and has no parent; any other block:
// it becomes that block's child. `as_copy` carries the code and the children;
// without it only the data goes along (the form of a class instance). The copy
// has the COPY kind bit, and a class becomes an INSTANCE.
vrkblock* clone_block(vrkblock* source, vrkblock* owner, bool as_copy,
                      CopyPath path = CopyPath::direct);

// Fills the empty block `copy` with the data of `source` (its header fields,
// variables, scoped list and captures, no code and no children) exactly as
// the saved record's data-only form would. False, with `copy` untouched, when
// the data holds what only the record carries (objects, lists or sets in a
// constant, live `die` functions, an extern name, arguments being bound).
// With `cells_ready` the variables of `copy` already hold as many blank cells
// as `source` has (a renewed block), which are filled in place; only with the
// instance paths on.
bool copy_data_directly(vrkblock* source, vrkblock* copy, bool cells_ready = false);

// The first copy at or after position `from` of `copies` that is not busy, or
// null. `leading` comes back as the count of copies at the front known to be
// running (a recursion keeps one per level): the search starts there next
// time.
vrkblock* first_idle_copy(const std::vector<vrkblock*>& copies, std::size_t from,
                          std::size_t& leading);

// A block to run the function of `function_cell` in: the function's own block
// when it is idle (unless `force`), else an idle copy, else a new copy. The
// closure of the cell is loaded into the block chosen. Null when the cell
// names no live block, or when a busy native function would need a copy.
// Without a cell, `block` is the function's block. `source_alive`: the caller
// has just used the cell's block, so the look-up in the live blocks is spared.
vrkblock* get_instance(vrkblock* block, vrkvar* function_cell, bool force,
                       bool source_alive = false);

// Loads the captured values of a lambda's cell into `target`, the block that
// is about to run it. `caller` is the block on whose behalf the values are
// assigned, or null.
void load_closure(vrkvar* function_cell, vrkblock* target, vrkblock* caller = nullptr);

// Makes a new instance of the class blueprint for the cell `dest` (count 1,
// or 0 when dest is MOVABLE), runs its field set-up and its constructor with
// the arguments stored in the constructor's parameters. Returns the instance
// block, or null.
vrkblock* copyConstruct(vrkvar* dest, vrkblock* blueprint, vrkblock* caller);

}  // namespace vrk
