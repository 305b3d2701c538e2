// Member access of native objects: the look-up in a type's member table, its
// per-site cache, and the wrapper through which script function members run.
//
// A member is found by position (an INT key: the record at that place of the
// table), or by name. A name look-up made by an INDEX instruction remembers its
// answer in the instruction's look-up cache: the member table it searched, the
// key text and the record's position. The answer depends only on the type's
// table, never on the object, so any object of the same type hits it; a key
// text that changed in place is confirmed by its bytes. The search stops at
// the first equal name or at the catch-all record (empty name), which takes
// every key no earlier record has.
#pragma once

#include <cstdint>
#include <string>

#include "objects/type_registry.h"
#include "values/object.h"
#include "vm/instruction.h"

namespace vrk {

struct vrkvar;
struct vrkblock;

// Position of the record answering `text` in `table`, or -1. With `site` (an
// INDEX instruction) the site's cache is asked first and updated on a hit.
int64_t find_member_index(const vrkmember_table& table, const std::string& text, vrkinstr* site);

// The common `arrayGet` (`is_set` false) and `arraySet` (true) of native types.
// `cell` is the result cell of a read or the value cell of a write.
ScriptArrayReturn member_access(vrkobject* object, const vrkmember_table* table, vrkblock* b,
                                vrkvar* cell, vrkvar* key, bool is_set);

// The native function behind a script function member: finds the object on the
// calling block's object stack, pre-sets the result to it (so calls chain) and
// calls the member, or hands it to a worker thread when it is threaded.
vrkbuiltin_fn member_wrapper(vrkmember_fn callable, bool threaded);

}  // namespace vrk
