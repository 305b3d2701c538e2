// The engine operations the run modes are made of.
//
// The entry (host/entry) walks through each run mode step by step: it logs,
// chooses paths, changes directories and waits on its own, and turns to the
// engine only for what follows here: loading a script, compiling and saving a
// program, rebuilding one from its saved bytes, running a root block, running
// one frame, retiring a parser and watching the script folder. Keeping these
// few calls in one place keeps the entry readable as the sequence of steps it
// is and lets it be built before the engine can run scripts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrk {

class vrkscript;
struct vrkparser;
struct vrkblock;

// Loads a script file through the engine (`load(path, true, compileNow)`).
// Returns the parser, or null when there is none; a parser whose file could
// not be read has no root block.
vrkparser* load_script(vrkscript& engine, const std::string& path, bool compileNow);

// The parser's root block (the script's top block); null for a null parser.
vrkblock* root_block(const vrkparser* parser);

// Compiles a root block and its children.
void compile_root(vrkblock* root);

// The full saved form of a compiled root block, as a compiled program file holds it.
std::vector<uint8_t> save_program(vrkblock* root);

// Creates an empty parser to receive a compiled program; null when there is none.
vrkparser* new_program_parser(vrkscript& engine);

// Rebuilds the program in `bytes` (read from offset 0) into the parser.
void construct_program(vrkparser* parser, const std::vector<uint8_t>& bytes);

// Creates the parser that runs the lines typed at the prompt: an empty script
// whose root block each line is parsed into.
vrkparser* create_prompt_parser(vrkscript& engine);

// Runs a root block from its first instruction on the calling (main) thread.
void run_root(vrkblock* root);

// True while a root block is active (running, sleeping or waiting).
bool root_active(const vrkblock* root);

// Runs one frame of the engine; true when blocks were suspended during it.
bool run_frame(vrkscript& engine);

// Retires a parser and, with `recompileAll`, recompiles the other scripts
// (`reloadParser(parser, recompileAll, none)`).
void reload_parser(vrkscript& engine, vrkparser* parser, bool recompileAll);

// Starts the thread that reloads scripts when files below `directory`
// change. The thread is left running.
void start_file_watcher(vrkscript& engine, const std::string& directory);

}  // namespace vrk
