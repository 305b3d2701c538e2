// Run-time fault reports and the trace of the calling chain.
//
// A fault at run time is reported, not raised: the report goes to the log with
// a trace built from the outermost caller inwards, and the instruction or
// builtin carries on with a harmless value. The run loop, native objects and
// builtins all use these three routines.
#pragma once

#include <string>

#include "platform/compiler.h"

namespace vrk {

struct vrkblock;

// "\nRuntime error: %s\n%s\n" with the code and the trace. Takes no lock: only
// the thread running the block calls it.
void runtime_error(const char* code, vrkblock* block);
// "\n%s: %s\nIn File:\n%s\n"; a null kind reads "runtime error".
void report_error(vrkblock* block, const char* kind, const char* message);
// Formats the message into a 16384-byte buffer first (cut there); a null kind
// reads "runtime_error".
void report_errorf(vrkblock* block, const char* kind, const char* format, ...)
    VRK_PRINTF_FORMAT(3, 4);
// Appends the trace of `block` (outermost caller first) to `out`.
void trace(vrkblock* block, std::string& out);

}  // namespace vrk
