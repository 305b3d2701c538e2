// Run-time fault reports.
//
// A fault at run time is reported, not raised: the report goes to the log with
// a trace of the calling chain, outermost caller first, and the instruction,
// operator or builtin carries on with a harmless value. The run loop, the
// operators, native objects and builtins all use these three routines. The
// trace is read from the block records of the chain, which belong to the block
// layer above this one: it writes the trace (vm/errors.h) and installs it as
// `value_context().trace_writer` whenever it makes a block, so every report
// that names a block carries its trace.
#pragma once

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

}  // namespace vrk
