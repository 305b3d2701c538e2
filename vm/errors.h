// The trace of the calling chain, and the run-time fault reports that carry it.
//
// A fault at run time is reported, not raised (values/error_report.h): the
// report goes to the log with a trace built from the outermost caller inwards.
// The trace reads the block records of the chain (the line and file tables,
// the resume points), so it is written here; making a block installs `trace`
// as the value layer's trace writer (vm/block.cpp).
#pragma once

#include <string>

#include "values/error_report.h"

namespace vrk {

struct vrkblock;

// Appends the trace of `block` (outermost caller first) to `out`.
void trace(vrkblock* block, std::string& out);

}  // namespace vrk
