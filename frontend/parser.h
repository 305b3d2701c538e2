// `vrkparser`: one loaded script, from source text to a tree of blocks.
//
// A parser reads one source file (or one string of source), runs it through the
// line preprocessor (comments, includes, line markers), rewrites multi-line
// literals into formatted strings, inserts the braces that indentation implies,
// and hands the text to the root block, whose `set_source` cuts brace bodies into
// child blocks and leaves "{##BLKn}" placeholders. Nothing here emits
// instructions; compiling the tree is the compile driver's job. The parser owns
// its tree: deleting the parser deletes every block of the script.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vrk {

class vrkengine;
struct vrkblock;

struct vrkparser {
    vrkparser(vrkengine* engine, std::string name, bool is_file, bool compile_now);
    ~vrkparser();
    vrkparser(const vrkparser&) = delete;
    vrkparser& operator=(const vrkparser&) = delete;

    // Preprocesses `source` (or, when empty, the file `source_filename`) and
    // installs the block tree; `reset` discards the old tree first.
    bool parse(std::string source, bool reset);

    vrkengine* engine = nullptr;              // owning engine
    std::string source_filename;              // main file path, or the source text given
    std::string source_folder;                // folder of the main file with its last "/"
    std::string script_arguments;             // text behind a quoted file name
    uint8_t from_file = 1;                    // built from a file (1) or from text (0)
    vrkblock* root_block = nullptr;           // top of the tree, owned
    std::vector<std::string> included_files;  // full paths already included
    std::string search_folder;                // prefix for relative names
    uint8_t parse_ok = 0;                     // parse (and a requested compile) succeeded
    uint8_t disposable = 0;                   // removed instead of re-parsed at recompile
    uint8_t compiled = 0;                     // set after a successful recompile
};

// How deep blocks may nest in a source text. No real program comes near it; a
// deeper body is a syntax error, and the block it stands in loses the rest of
// its text (the host stack and the memory for the blocks' texts stay bounded).
inline constexpr int kMaxBlockDepth = 1000;

// Runs the front end's text splitter: installed into blocks at start-up.
void install_source_splitter();

// The text passes `parse` applies between preprocessing and splitting; they are
// public so that each can be exercised on its own.
//
// Rewrites every ''' ... ''' literal into a formatted-string expression.
void rewrite_multiline_literals(std::string& text);
// Inserts the braces that the indentation of `if`, `else` and `for` implies.
void infer_braces(std::string& text);
// Cuts the text behind a quoted script name into the elements of `args`.
std::vector<std::string> split_script_arguments(const std::string& arguments);

}  // namespace vrk
