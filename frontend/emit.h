// Appending instructions to a block while it is compiled.
//
// The compiler writes code only through `emit`. It honours the emission switch
// of the block's compile state (a dry run emits nothing) and, when the process
// keeps debug tables, records for every instruction the token, line and file it
// was compiled from, which is what run-time error traces print.
#pragma once

#include <cstdint>

#include "vm/instruction.h"

namespace vrk {

struct vrkblock;

// Appends an instruction (honours the compile state's emission switch and keeps
// the debug tables when the block has them).
void emit(vrkblock* block, Op op, int64_t arg, uint64_t ref);

}  // namespace vrk
