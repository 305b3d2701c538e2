// Reading the host's options and choosing the script and the run mode.
#include "host/command_line.h"

#include <sstream>

namespace vrk {

namespace {

// Every row sits at the index of its option, so option_spec can index the table.
constexpr bool table_in_order() {
    for (std::size_t i = 0; i < kOptions.size(); ++i)
        if (static_cast<std::size_t>(kOptions[i].option) != i) return false;
    return true;
}
static_assert(table_in_order(), "kOptions rows must follow the order of Option");

constexpr std::string_view kSourceExtension = ".vrs";
constexpr std::string_view kCompiledExtension = ".vre";

bool holds(const std::string& text, std::string_view part) {
    return text.find(part) != std::string::npos;
}

// Removes trailing blanks, then trailing double quotes, then leading ones.
void trim_script_path(std::string& path) {
    while (!path.empty() && (path.back() == ' ' || path.back() == '\t')) path.pop_back();
    while (!path.empty() && path.back() == '"') path.pop_back();
    std::size_t start = 0;
    while (start < path.size() && path[start] == '"') ++start;
    path.erase(0, start);
}

// The first white-space-delimited word of a text ("" when there is none).
std::string first_word(const std::string& text) {
    std::istringstream stream(text);
    std::string word;
    stream >> word;
    return word;
}

}  // namespace

std::string option_value(const ArgumentParser& parser, Option option) {
    const OptionSpec& spec = option_spec(option);
    if (const std::string* v = parser.value(std::string(spec.shortName))) return *v;
    if (const std::string* v = parser.value(std::string(spec.longName))) return *v;
    return {};
}

bool option_flag(const ArgumentParser& parser, Option option) {
    const OptionSpec& spec = option_spec(option);
    return parser.has_flag(std::string(spec.shortName)) ||
           parser.has_flag(std::string(spec.longName)) ||
           parser.value(std::string(spec.shortName)) || parser.value(std::string(spec.longName));
}

CommandLineValues read_command_line(const ArgumentParser& parser) {
    CommandLineValues values;
    values.runscript = option_value(parser, Option::runscript);
    values.scriptarg = option_value(parser, Option::scriptarg);
    values.compile = option_value(parser, Option::compile);
    values.compiledRun = option_value(parser, Option::compiled_run);
    values.workingDir = option_value(parser, Option::working_dir);
    values.script = option_value(parser, Option::script);
    values.deptest = option_flag(parser, Option::deptest);
    values.help = option_flag(parser, Option::help);
    values.version = option_flag(parser, Option::version);
    values.debug = option_flag(parser, Option::debug);
    values.quiet = option_flag(parser, Option::quiet);
    values.repl = option_flag(parser, Option::repl);
    return values;
}

ScriptSelection select_script(const std::string& scriptValue,
                              const std::vector<std::string>& positional,
                              const std::string& compiledRun) {
    ScriptSelection selection;
    selection.compiledRun = compiledRun;
    selection.scriptPath = scriptValue;
    // A positional path is read word-wise, so "my file.vrs" becomes "my".
    if (selection.scriptPath.empty() && positional.size() > 1)
        selection.scriptPath = first_word(positional[1]);
    trim_script_path(selection.scriptPath);

    std::string& path = selection.scriptPath;
    if (path.empty()) return selection;
    if (holds(path, kSourceExtension)) return selection;
    if (holds(path, kCompiledExtension)) {
        selection.compiledRun = path;
        path.clear();
        return selection;
    }
    // The run goes on with the path as it stands; ".vrs" is appended later.
    selection.unknownType = true;
    return selection;
}

RunPlan plan_run(const CommandLineValues& values, const std::vector<std::string>& positional) {
    RunPlan plan;
    if (values.help) {
        plan.mode = RunMode::help;
        return plan;
    }
    if (values.version) {
        plan.mode = RunMode::version;
        return plan;
    }
    if (!values.runscript.empty()) {
        plan.mode = values.compile.empty() ? RunMode::one_shot_run : RunMode::one_shot_compile;
        return plan;
    }
    if (values.deptest) {
        plan.mode = RunMode::dependency_test;
        return plan;
    }
    plan.selection = select_script(values.script, positional, values.compiledRun);
    plan.selected = true;
    if (!values.compile.empty())
        plan.mode = RunMode::compile;
    else if (values.repl)
        plan.mode = RunMode::prompt;
    else if (!plan.selection.scriptPath.empty() || !plan.selection.compiledRun.empty())
        plan.mode = RunMode::normal_run;
    else
        plan.mode = RunMode::registration;
    return plan;
}

std::string source_path_to_load(const std::string& scriptPath, const std::string& compiledRun) {
    std::string path = scriptPath;
    if (!path.empty() && !holds(path, kSourceExtension)) path += kSourceExtension;
    // Deliberately the script path, not the program name, gets the extension:
    // a program named without ".vre" makes the host look for a source file.
    if (!compiledRun.empty() && !holds(compiledRun, kCompiledExtension)) path += kCompiledExtension;
    return path;
}

std::string compiled_file_name(const std::string& source, bool cutAtSourceExtension) {
    std::string name = source;
    if (cutAtSourceExtension) {
        const std::size_t at = name.find(kSourceExtension);
        if (at != std::string::npos) name.erase(at);
    }
    return name + std::string(kCompiledExtension);
}

std::string usage_text() {
    return R"(usage: vorka [options] [script.vrs | program.vre]

Runs vorkascript source files (.vrs) and compiled programs (.vre). A value is
given in the form --name=value, in one argument; any number of leading dashes
works (-s=a.vrs, --script=a.vrs).

options:
  -rs=FILE,   --runscript=FILE     run FILE once and leave when it is done
                                   (at the latest after 120 s)
  -s=FILE,    --script=FILE        run FILE and keep the host running; only
                                   exitprocess() ends it
  -sa=TEXT,   --scriptarg=TEXT     text the function scriptarg() returns
                                   (with --runscript only)
  -cc=FILE,   --compile=FILE       compile FILE into a .vre program
  -crun=FILE, --compiled_run=FILE  run a compiled .vre program
  -wd=DIR,    --working_dir=DIR    working directory instead of the script's
  -dt,        --deptest            create the engine and leave
  -dbg,       --debug              keep line tables, so that syntax errors and
                                   runtime traces name the file and line
  -q,         --quiet              no start-up lines; print() writes bare
                                   lines; errors and warnings go to stderr
  -i,         --repl               interactive prompt (after the script, if
                                   one is named); Ctrl-D leaves
  -h,         --help               print this text and leave
  -v,         --version            print the version and leave

run modes, in this order:
  help, version    print and leave (exit code 0)
  one-shot run     --runscript; ends with the script
  one-shot compile --runscript and --compile; writes FILE.vre
  dependency test  --deptest
  compile          --compile; writes the name without .vrs, plus .vre
  prompt           --repl
  normal run       --script, a plain argument, or --compiled_run; the host
                   keeps running after the script, for sleeps, schedules,
                   threads and reloads
  registration     nothing given at all: associates .vrs and .vre files with
                   this executable for the user (XDG MIME and desktop files),
                   exit code 1

files:
  .vrs   script source
  .vre   compiled program

search paths:
  A script named on the command line is opened as given, relative to the
  start directory. #include "name" looks in the including file's folder, the
  current directory, scripts/, scripts/include/, then scripts/ and
  scripts/include/ beside the executable. Native modules (vrk_*.so) are
  loaded at start from scriptmodules/ in the working directory or, when that
  holds none, from scriptmodules/ beside the executable.
)";
}

std::string version_line(const std::string& version) {
    return "vorka " + version + " (vorkascript console host)";
}

std::string directory_part(const std::string& path) {
    const std::size_t at = path.find_last_of("\\/");
    return at == std::string::npos ? path : path.substr(0, at);
}

}  // namespace vrk
