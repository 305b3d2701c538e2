// The block record: a block and everything below it as bytes, and back.
//
// A compiled program file is the record of its root block, and block copies
// and functions inside saved data travel as records too. A record holds the
// compiled state only: a few header bytes, the children (each behind the
// record marker FAFB), the `die` functions, the instructions, the variables,
// a class's function slots, the extern name, a class or struct's name table,
// the scoped list and the capture list, with the marker between the groups.
// There is no header, version or checksum: the markers are the only check, and
// tag and opcode numbers are a fixed contract between writer and reader.
//
// Pointers become references that the reader resolves in its own tree:
// - a child of the instruction's block, by position;
// - a block the engine knows by name: a registered function, a global
//   variable's block, a named cell, an extern function, a native function;
// - any other block by a relative path: a number of parent steps, then up to
//   two child positions (the second reaches a class's constructor). A block
//   referring to itself, or to an enclosing block, is written as the steps
//   alone, so that a copy loaded elsewhere refers to its own variables and to
//   the blocks that enclose it, and never back to the block it was copied from.
// Relative references are resolved once the whole tree is read, so that a
// reference may point at a block written after it. Classes and singletons
// among the children then run their bodies once, in order.
//
// What a record does not keep: source text, line tables, values of plain
// variables (constants and declared functions are kept), most variable names,
// copies and instances, native records (native functions are linked again by
// name). A truncated or corrupt record is reported and read as far as it goes.
#pragma once

#include <cstdint>

namespace vrk {

struct vrkblock;
class ScriptCacheReader;
class ScriptCacheWriter;

// The record marker, written FB FA.
inline constexpr uint16_t kRecordMarker = 0xFAFB;

// Writes the record of `block`. Without code the record carries no children,
// no instructions, no class slots, and no block of any function constant: the
// form of a class instance, which shares its blueprint's functions.
void toCache(vrkblock* block, ScriptCacheWriter& writer, bool withCode);
// Fills an empty `block` from a record. Its `parent` and `engine`, when set
// before, are where references are resolved from.
void fromCache(vrkblock* block, ScriptCacheReader& reader);

}  // namespace vrk
