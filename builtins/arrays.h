// Array and JSON builtins: the script functions that work on containers.
//
// The JSON value is the language's one general container (ordered list, keyed
// map and record at once); these functions build, grow, shrink, search, sort
// and rotate it, and most of them also accept the flat containers: DATA and
// the four number sets, and a STRING where a function says so. A PTR argument
// is handed to the native object's own container operation (count, push, pop,
// hasKey, sync). List literals compile to `list:push(x)` and collection loops
// to `coll:count()`, so `push` and `count` sit on hot paths of every script.
//
// A wrong call never stops a script: it is reported in the block form
// "\n%s: %s\nIn File:\n%s\n" (area "external_function", the calling block's
// trace) and the function answers with a default. Only `push` and `push_ref`
// answer a wrong call with an ERR value.
//
// Every body has the signature of builtins/registry.h and lives in namespace
// `lib` under its script name.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

// ---- creation ------------------------------------------------------------------
VRK_BUILTIN(json);     // (var, size) makes var itself a JSON array, grown by size INT 0s
VRK_BUILTIN(jsonvar);  // () a new empty JSON array

// ---- size and objects ------------------------------------------------------------
VRK_BUILTIN(count);   // (container) element count; a string's byte count
VRK_BUILTIN(empty);   // (container) 1 when it holds nothing (1 for scalars)
VRK_BUILTIN(clear);   // (container) empties a string, array, DATA or set in place
VRK_BUILTIN(sync);    // (object) the object's sync operation
VRK_BUILTIN(resize);  // (container, size) grows with zeros or cuts from the end

// ---- adding and removing at the end --------------------------------------------------
VRK_BUILTIN(push);      // (container, value) appends; on an array answers a REF to the element
VRK_BUILTIN(push_ref);  // (array, var) appends a REF to var
VRK_BUILTIN(push_key);  // (array, key, value) appends a keyed element, answers its index
VRK_BUILTIN(pop);       // (container) drops the last element, answers the new last index

// ---- keys and positions ------------------------------------------------------------
VRK_BUILTIN(key);      // (array, index) the key of an element
VRK_BUILTIN(setkey);   // (array, index, key) sets the key of an element
VRK_BUILTIN(first);    // (array) copy of the first element
VRK_BUILTIN(last);     // (array) copy of the last element
VRK_BUILTIN(has_key);  // (array, key) 1 when an element has the key
VRK_BUILTIN(indexof);  // (array, key) position of the first element with the key, else 0
VRK_BUILTIN(is_json);  // (var) 1 for a JSON value

// ---- circular buffers ----------------------------------------------------------------
VRK_BUILTIN(cycle);      // (array, value, maxcycle) shifts the buffer and writes the newest value
VRK_BUILTIN(cycle_get);  // (array, capacity) writes into the ring at its counter

// ---- sorting ---------------------------------------------------------------------------
VRK_BUILTIN(sorthl);     // (array) by value, highest first
VRK_BUILTIN(sortlh);     // (array) by value, lowest first
VRK_BUILTIN(sortkeyhl);  // (array[, key]) by element key, or by each record's value under key
VRK_BUILTIN(sortkeylh);  // the same, lowest first

// ---- erasing and inserting --------------------------------------------------------------
VRK_BUILTIN(erase);        // (container, index|key[, count]) answers index - 1 for loops
VRK_BUILTIN(erase_value);  // (array, text) removes every element whose text is text
VRK_BUILTIN(insert);       // (array|string, index, value) inserts before index

}  // namespace vrk::lib
