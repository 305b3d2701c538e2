// A readable listing of a block's code, shared by the tests and debug output.
//
// Each instruction reads "NAME arg ref": the name from the opcode table, the
// `arg` as a number, and the `ref` as the caller's namer writes it. The default
// namer writes nothing for 0, "-1" for all ones, the number for a small mode
// or count, "B" for the block itself and "blk" for any other block.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace vrk {

struct vrkblock;

// Writes a `ref`; returning false leaves it to the default namer.
using vrkref_namer = std::function<bool(uint64_t ref, std::string& out)>;

// The code of `block`, instructions joined by `separator`.
std::string dump_code(const vrkblock* block, const char* separator = "; ",
                      const vrkref_namer& namer = {});

}  // namespace vrk
