// `ArgumentParser`: the command-line store, filled once at start.
//
// The parser knows nothing about the host's options; it only sorts the
// argument vector into three bins. An argument that starts with '-' and is not
// a number is an option: its leading dashes are dropped, and what is left is
// either `name=value` (a value, in `params`) or a bare name (a flag, in
// `flags`). Everything else is positional, the program path included, so the
// first plain argument is `positional[1]`. Numbers such as "-5" count as
// positional: an argument is a number when a floating-point number can be read
// from the start of it.
//
// A value is only ever given with `=` inside the same argument: `--script a`
// makes `script` a flag and `a` a positional argument. The one exception are
// names listed in `registeredParams`, which take the following argument as
// their value; the host lists none, the mechanism stays for embedders.
//
// Insertion never replaces: when a name is given twice the first value counts.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace vrk {

class ArgumentParser {
public:
    ArgumentParser() = default;
    // Copies the argument vector into `args`; call parse() to sort it.
    ArgumentParser(int argc, const char* const* argv);

    // Sorts `args` into `params`, `positional` and `flags`. Names listed in
    // `registeredParams` before the call take the next argument as value.
    void parse();

    // True when the argument counts as a number (reading a floating-point
    // number from a text stream over it succeeds).
    static bool is_number(const std::string& argument);
    // True when the argument is an option: not a number, first character '-'.
    static bool is_option(const std::string& argument);

    // The value given for `name`, or null when it has none.
    const std::string* value(const std::string& name) const;
    // True when `name` was given without a value.
    bool has_flag(const std::string& name) const;

    std::vector<std::string> args;              // the whole argument vector, program path first
    std::map<std::string, std::string> params;  // option name to value; first value wins
    std::vector<std::string> positional;        // plain arguments; [0] is the program path
    std::set<std::string> flags;                // options given without a value
    std::set<std::string> registeredParams;     // names that take the next argument as value
};

}  // namespace vrk
