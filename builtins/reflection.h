// Reflection builtins: what a script may learn about its own values and
// functions, and how it manages references and the lifetime of objects.
//
// Type inspection reads the tag of a cell. `vtype` and `vscripttype` are the
// two builtins registered to see REF arguments as they are: they look through
// one level themselves, so that a reference without a target can still be
// named "REF". A PTR is named by its object's script type; a handle whose
// object is gone resolves to nothing, which `vtype` reports as a warning and
// `vtype2` names "invalid_object".
//
// References. `ref` makes a REF to the caller's own cell, `deref` reads
// through one, `gvar` hands out a REF to a process-wide cell shared by every
// script under its name, and `allocate` makes a cell that lives until
// `deallocate` or the end of the script that made it. Those lifetimes ride on
// the block clean-up queue: each holder is a record on the block that asked,
// fired when that block goes.
//
// Lifetime. `new` takes one more reference on an object, so that no release
// of a handle ends it; `copy` asks the object for its copy; `free` ends a
// class instance (running its destructor) or a native object at once. A
// library global such as `os` carries object_flag::GLOBAL and cannot be freed.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(vtype);            // (var) STRING tag name; "REF" only for a REF without target
VRK_BUILTIN(vtype2);           // (var) the same; stale handles "invalid_object"
VRK_BUILTIN(vscripttype);      // (var) class name or object type name, else "err"
VRK_BUILTIN(is_function);      // (var) INT 1 for a FUNCTION
VRK_BUILTIN(is_void);          // (var) INT 1 for a VOID
VRK_BUILTIN(is_float);         // (var) INT 1 for a FLOAT
VRK_BUILTIN(is_int);           // (var) INT 1 for an INT
VRK_BUILTIN(is_string);        // (var) INT 1 for a STRING
VRK_BUILTIN(is_number);        // (var) INT 1 for an INT or a FLOAT
VRK_BUILTIN(function_code);    // (func) STRING source name of the function's block
VRK_BUILTIN(function_pcount);  // (func) INT declared parameters
VRK_BUILTIN(isrunning);        // (func) INT 1 while the function's block is busy
VRK_BUILTIN(is_busy);          // (func) INT 1 when a call would have to wait
VRK_BUILTIN(dbg_isconst);      // (var) INT constness byte of the cell
VRK_BUILTIN(isvalid);          // (ptr) INT 1 while the handle's object lives
VRK_BUILTIN(getlastobject);    // () PTR to the most recently registered object, else INT 0
VRK_BUILTIN(class_ref_count);  // (instance) INT counting holders of a class instance
VRK_BUILTIN(vaddress);         // (var) STRING address of the cell
VRK_BUILTIN(vaddress_obj);     // (ptr) INT address of the object, 0 when gone
VRK_BUILTIN(vaddress_class);   // (var) INT payload pointer of the cell
VRK_BUILTIN(ref);              // (var) REF to the argument cell
VRK_BUILTIN(deref);            // (ref) the value behind a reference
VRK_BUILTIN(gvar);             // (name) REF to the process-wide cell of that name
VRK_BUILTIN(allocate);         // (value) REF to a new cell holding a copy of value
VRK_BUILTIN(deallocate);       // (ref) INT 1 when the cell was allocated and is now released
VRK_BUILTIN(make_ref);         // (var) the value, assigned to the result
VRK_BUILTIN(new_);             // `new`: (ptr) one more reference; the argument cell itself
VRK_BUILTIN(copy);             // (var) an object's copy, or the value copied
VRK_BUILTIN(free_);            // `free`: (var) ends an instance or object now
VRK_BUILTIN(get_context);      // () REF to the nearest script context cell, else INT 0
VRK_BUILTIN(has_context);      // () INT 1 when there is a script context cell

}  // namespace vrk::lib
