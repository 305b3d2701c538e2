// Storing into an element: the second half of `a[k] = v`.
//
// An INDEX instruction in store mode leaves the container on the stack and the
// key in the block's pending index; the SET that follows lands here. What a
// store means depends on the container: a JSON finds or creates the element, a
// string overwrites characters (appending past its end), the numeric vectors
// write in range only, a native object is asked through arraySet. Storing the
// erase constant removes the element instead.
#pragma once

namespace vrk {

struct vrkvar;
struct vrkblock;
struct vrkinstr;

// Performs the store of src into element `pending` of dst; clears the pending
// index. Returns true when a native object's arraySet suspended the run: then
// the caller ends the run with resume_at at the next instruction. `instr` is the
// storing instruction, shown to a native object as the block's
// current_instruction for the length of its arraySet call.
bool element_store(vrkblock* block, vrkvar* dst, vrkvar* src, const vrkinstr* instr = nullptr);

// The checked assignment of a store: marker pointers (below 11) are ignored, a
// constant destination is reported with its name and left alone (a constant
// CLASS silently), and a source marked BOUND_OBJECT binds the object on top of
// the block's object stack into the destination.
void checked_assign(vrkblock* block, vrkvar* dst, vrkvar* src);

// True while the block has an index waiting for a store.
bool has_pending_index(const vrkblock* block);

}  // namespace vrk
