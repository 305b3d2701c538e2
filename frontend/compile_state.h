// State of one compile run, shared by all blocks of the tree being compiled.
//
// The compiler works on one tree at a time; this record travels with it and
// tells reports where they are (file stack, current line) and the emitter
// whether to emit at all and which line the next instructions belong to.
#pragma once

#include <string>
#include <vector>

namespace vrk {

struct compile_state {
    std::vector<std::string> file_stack;  // names of the files being compiled, innermost last
    std::vector<int> line_stack;          // saved line numbers of the enclosing files
    int line = 0;                         // present line number in the innermost file
    int line_index = 0;                   // running index of the line being compiled (debug tables)
    std::string line_text;                // source text of the present line (debug tables)
    bool emission_off = false;            // emit() does nothing while set
};

}  // namespace vrk
