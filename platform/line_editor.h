// Reading typed lines at a terminal, with line editing and a history file.
//
// The interactive prompt reads one line at a time from a terminal. The editor
// gives the usual keys (cursor movement, deleting words, the arrows walking
// through earlier lines) and keeps the lines in a history file across
// sessions. Ctrl-C while typing abandons the line (`interrupted`); Ctrl-D on
// an empty line, or the end of the input, is `end`. When standard input is not
// a terminal the editor reads plain lines without editing.
//
// The editor blocks in `read` and is meant to be used from one thread, beside
// the thread that runs scripts: only `read` and `remember` touch the terminal
// and the history.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace vrk::platform {

class LineEditor {
public:
    // How a read ended.
    enum class Status : uint8_t { line, interrupted, end };

    // One read.
    struct Input {
        Status status = Status::end;  // what ended the read
        std::string text;             // the line, without its line end, for Status::line
    };

    // An editor on standard input and output whose history lives in
    // `historyPath` (loaded now, its folders created when it is saved; "" keeps
    // no file).
    static std::unique_ptr<LineEditor> open(const std::string& historyPath);

    virtual ~LineEditor() = default;

    // Shows `prompt` and reads one line.
    virtual Input read(const std::string& prompt) = 0;

    // Adds a line to the history and saves the history file.
    virtual void remember(const std::string& line) = 0;
};

// The history file of the prompt: $XDG_STATE_HOME/vorka/history, with
// ~/.local/state in place of an unset or relative $XDG_STATE_HOME; "" when
// there is no home folder.
std::string prompt_history_path();

}  // namespace vrk::platform
