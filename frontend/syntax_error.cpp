// Syntax-error reports: the file and line come from the block's compile state.
#include "frontend/syntax_error.h"

#include "base/log.h"
#include "frontend/compile_state.h"
#include "vm/block.h"

namespace vrk {

namespace {

// The report of both: through error, or through warn for a warning. A block
// that is not being compiled gets the internal-failure form, always an error.
void report(const char* message, vrkblock* block, bool warning) {
    if (!block || !block->compile_state_ptr) {
        log().error("\n\nINTERNAL FAILURE! %s", message);
        return;
    }
    const compile_state& state = *block->compile_state_ptr;
    const char* file = state.file_stack.empty() ? "MEMORY" : state.file_stack.back().c_str();
    if (warning)
        log().warn("\n\nSyntax error: %s\nIn file: %s\nLine Number: %i\n", message, file,
                   state.line_number);
    else
        log().error("\n\nSyntax error: %s\nIn file: %s\nLine Number: %i\n", message, file,
                    state.line_number);
}

}  // namespace

void syntaxError(const char* message, vrkblock* block) {
    report(message ? message : "", block, false);
}

void syntaxWarning(vrkblock* block) { report("deprecated", block, true); }

}  // namespace vrk
