// Syntax-error reports: the file and line come from the block's compile state.
#include "frontend/syntax_error.h"

#include "base/log.h"
#include "frontend/compile_state.h"
#include "vm/block.h"

namespace vrk {

void syntaxError(const char* message, vrkblock* block) {
    if (!message) message = "";
    if (!block || !block->compile_state_ptr) {
        log().error("\n\nINTERNAL FAILURE! %s", message);
        return;
    }
    const compile_state& state = *block->compile_state_ptr;
    const char* file = state.file_stack.empty() ? "MEMORY" : state.file_stack.back().c_str();
    log().error("\n\nSyntax error: %s\nIn file: %s\nLine Number: %i\n", message, file, state.line_number);
}

void syntaxWarning(vrkblock* block) {
    const char* message = "deprecated";
    if (!block || !block->compile_state_ptr) {
        log().error("\n\nINTERNAL FAILURE! %s", message);
        return;
    }
    const compile_state& state = *block->compile_state_ptr;
    const char* file = state.file_stack.empty() ? "MEMORY" : state.file_stack.back().c_str();
    log().warn("\n\nSyntax error: %s\nIn file: %s\nLine Number: %i\n", message, file, state.line_number);
}

}  // namespace vrk
