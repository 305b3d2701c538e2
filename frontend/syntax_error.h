// Syntax-error reports of the front end.
//
// A syntax error is reported, not raised: the report goes to the log naming the
// file and line the compile state of the block is at, and the compiler goes on
// with what it has. Every text of such a report is written here; a block that
// is not being compiled gets the internal-failure form instead.
#pragma once

namespace vrk {

struct vrkblock;

// "\n\nSyntax error: %s\nIn file: %s\nLine Number: %i\n" through error, naming the
// file and line the block's compile state is at.
void syntaxError(const char* message, vrkblock* block);
// The same report with the message "deprecated", through warn.
void syntaxWarning(vrkblock* block);

}  // namespace vrk
