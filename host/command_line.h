// What the command line asks the host to do: the option table, the values read
// from it, the choice of the script and of the run mode.
//
// Every option has a short and a long name (stored here without dashes; the
// parser strips any number of them). When both names are given, the short one
// is looked up first and the first name found wins, so `-s=a --script=b` runs
// `a`. The first six options carry a value in the `name=value` form; the
// others are flags (a flag given with a value counts as given).
//
// The host runs in one of six modes, tested in this order (after --help and
// --version, which only print; --repl turns the normal run, or the want of
// anything to run, into an interactive prompt):
//
//   one-shot run      --runscript given, no --compile
//   one-shot compile  --runscript and --compile given
//   dependency test   --deptest
//   compile           --compile given
//   normal run        a script from --script, the first positional argument
//                     or --compiled_run
//   registration      nothing to run and nothing to compile
//
// Everything in this file is a pure function of the parsed arguments, so the
// decisions can be tested without an engine; host/entry carries them out.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/args.h"

namespace vrk {

// The host's options, in the order of the option table.
enum class Option : uint8_t {
    runscript,
    script,
    scriptarg,
    compile,
    compiled_run,
    working_dir,
    deptest,
    help,
    version,
    debug,
    quiet,
    repl,
};

// Whether an option carries a value or stands alone.
enum class OptionKind : uint8_t { value, flag };

// One row of the option table.
struct OptionSpec {
    Option option;               // which option the row describes
    std::string_view shortName;  // short name, without dashes
    std::string_view longName;   // long name, without dashes
    OptionKind kind;             // value or flag
};

inline constexpr std::array<OptionSpec, 12> kOptions{{
    {Option::runscript, "rs", "runscript", OptionKind::value},  // script of a one-shot run
    {Option::script, "s", "script", OptionKind::value},         // script of a normal run
    {Option::scriptarg, "sa", "scriptarg", OptionKind::value},  // text for `scriptarg` (one-shot)
    {Option::compile, "cc", "compile", OptionKind::value},      // source to compile to .vre
    {Option::compiled_run, "crun", "compiled_run", OptionKind::value},  // compiled program to run
    {Option::working_dir, "wd", "working_dir",
     OptionKind::value},                                   // replaces the script's directory
    {Option::deptest, "dt", "deptest", OptionKind::flag},  // create the engine and leave
    {Option::help, "h", "help", OptionKind::flag},         // print the usage and leave
    {Option::version, "v", "version", OptionKind::flag},   // print the version and leave
    {Option::debug, "dbg", "debug", OptionKind::flag},     // keep line tables for traces
    {Option::quiet, "q", "quiet", OptionKind::flag},       // no banner, bare print output
    {Option::repl, "i", "repl", OptionKind::flag},         // interactive prompt
}};

// The table row of an option.
constexpr const OptionSpec& option_spec(Option option) {
    return kOptions[static_cast<std::size_t>(option)];
}

// The value of a value option (short name first), or "" when not given.
std::string option_value(const ArgumentParser& parser, Option option);
// True when a flag option was given (under either name).
bool option_flag(const ArgumentParser& parser, Option option);

// The option values the entry works with, read once after parsing.
struct CommandLineValues {
    std::string runscript;    // --runscript
    std::string scriptarg;    // --scriptarg
    std::string compile;      // --compile
    std::string compiledRun;  // --compiled_run
    std::string workingDir;   // --working_dir
    std::string script;       // --script
    bool deptest = false;     // --deptest given
    bool help = false;        // --help given
    bool version = false;     // --version given
    bool debug = false;       // --debug given
    bool quiet = false;       // --quiet given
    bool repl = false;        // --repl given
};

// Reads the option values out of a parsed command line.
CommandLineValues read_command_line(const ArgumentParser& parser);

// The script chosen when there is no one-shot run.
struct ScriptSelection {
    std::string scriptPath;    // source to run, trimmed; "" when none or moved to compiledRun
    std::string compiledRun;   // compiled program to run; may have been taken from the script path
    bool unknownType = false;  // the path is neither .vrs nor .vre: "invalid script file type?"
};

// Chooses the script of a normal run: the --script value, else the first
// blank-delimited word of the first positional argument; trims trailing
// blanks, then trailing and leading double quotes; a path holding ".vre" (and
// no ".vrs") becomes the compiled program instead.
ScriptSelection select_script(const std::string& scriptValue,
                              const std::vector<std::string>& positional,
                              const std::string& compiledRun);

// The run modes, in order of precedence. Help and version come before the
// six modes of the host and touch nothing; the prompt comes after the one-shot
// modes, the dependency test and compiling, and runs a named script first.
enum class RunMode : uint8_t {
    help,
    version,
    one_shot_run,
    one_shot_compile,
    dependency_test,
    compile,
    normal_run,
    prompt,
    registration,
};

// The mode chosen and, outside one-shot and dependency test, the script.
struct RunPlan {
    RunMode mode = RunMode::registration;  // what the host does
    ScriptSelection selection;             // filled when the script selection ran
    bool selected = false;                 // true when the script selection ran
};

// Decides the run mode; runs the script selection when the mode needs it.
RunPlan plan_run(const CommandLineValues& values, const std::vector<std::string>& positional);

// The source path a normal run loads: ".vrs" appended to a path without it,
// and ".vre" appended to the path (not to the program name) when a compiled
// program without ".vre" is named. "" means: run the compiled program.
std::string source_path_to_load(const std::string& scriptPath, const std::string& compiledRun);

// Name of the file a compile writes. A one-shot compile appends ".vre" to the
// name as given (a.vrs -> a.vrs.vre); a plain compile first cuts the name at
// ".vrs" (a.vrs -> a.vre).
std::string compiled_file_name(const std::string& source, bool cutAtSourceExtension);

// The text `--help` prints: every option with its short form, the run modes,
// the file types and where scripts, includes and native modules are searched.
std::string usage_text();

// The line `--version` prints (without its line end).
std::string version_line(const std::string& version);

// Everything before the last '\' or '/'; the whole path when it has neither.
std::string directory_part(const std::string& path);

}  // namespace vrk
