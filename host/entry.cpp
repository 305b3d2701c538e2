// The start-up sequence of the process and the run modes it leads to.
#include "host/entry.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "host/args.h"
#include "host/command_line.h"
#include "host/engine.h"
#include "host/frame_loop.h"
#include "host/host_state.h"
#include "host/init_script.h"
#include "host/registration.h"
#include "host/repl.h"
#include "host/run_modes.h"
#include "host/watchdog.h"
#include "platform/files.h"
#include "platform/frame_clock.h"
#include "platform/heap.h"
#include "platform/system.h"
#include "platform/thread_stack.h"

namespace vrk {

namespace {

// Waits before the entry returns or goes on, by occasion.
constexpr int64_t kCompileWaitMs = 5000;
constexpr int64_t kCompileFailureWaitMs = 10000;
constexpr int64_t kLoadFailureWaitMs = 5000;
constexpr int64_t kClockFailureWaitMs = 5000;

// Nested runs the host allows (its depth budget): far more than any real
// script needs, and few enough for the stack of the script thread. Each
// script call is one nested run, each `if`, loop or block body entered on the
// way another one.
constexpr uint32_t kHostRunDepthLimit = 250000;

// Stack bytes reserved per nested run: a run of a one-argument recursive
// function takes about 0.25 KiB in an optimised build (measured as the
// distance of the stack pointer between levels 1 and 1001 of
// bench/recursion.vrs) and several times that with the address sanitizer,
// whose unoptimised frames carry red zones (not measured: the figure is
// generous). Both leave room for builtins and operators called from the
// deepest run. The reservation is address space and counts against an
// address-space limit (`ulimit -v`), which must still leave room for the data
// of a large script, so the optimised figure stays at twice the need of a
// level (a level of such a recursion is one or two nested runs).
constexpr std::size_t kRunStackBytes = 512;
constexpr std::size_t kSanitizedRunStackBytes = 16384;
// Room for the entry, the compiler and the frame loop beneath the scripts.
constexpr std::size_t kBaseStackBytes = std::size_t{64} << 20;

// Writes text to standard output as it is, past the log.
void print(const std::string& text) { platform::write_stdout(text.data(), text.size()); }

// Creates the process's engine. It is never destroyed (see host/entry.h); the
// process context and the host state keep pointers to it.
vrkscript& create_engine() { return *new vrkscript(); }

// Start-up steps before parsing: the arguments, the executable's path, the
// start directory, and the executable's folder in the process context.
void announce_start(const ArgumentParser& parser, bool quiet) {
    if (!quiet)
        for (const std::string& argument : parser.args) print("ARG: " + argument + "\n");

    const std::string executablePath = platform::executable_path();
    const std::string startDirectory = platform::current_directory();
    log().log("PATH: %s\n", executablePath.c_str());
    log().log("WDIR: %s\n", startDirectory.c_str());

    std::string folder = directory_part(executablePath);
    if (!folder.empty() && (folder.back() == '/' || folder.back() == '\\')) folder.pop_back();
    context().executableDirectory = folder;
    log().log("exe path: %s", folder.c_str());
}

int compile_failure() {
    log().log("compilation failed!\n");
    platform::sleep_ms(kCompileFailureWaitMs);
    return 0;
}

// A script without a top block: say so, wait, and let the engine retire the
// parser (a normal run then stays in the frame loop for a corrected file).
void after_failed_load(vrkscript& engine, vrkparser* parser) {
    log().log("loading failed!\n");
    platform::sleep_ms(kLoadFailureWaitMs);
    reload_parser(engine, parser, true);
}

// The road of both compile modes: load without compiling, compile, save.
int compile_to_file(vrkscript& engine, const std::string& source, bool cutAtSourceExtension) {
    log().warn("compiling file %s", source.c_str());
    vrkparser* parser = load_script(engine, source, false);
    log().log("program loaded...");
    vrkblock* root = root_block(parser);
    if (!parser || !root) return compile_failure();
    compile_root(root);
    log().log("program compiled...");
    const std::vector<uint8_t> program = save_program(root);
    log().log("program created.");
    std::ofstream out(platform::file_path(compiled_file_name(source, cutAtSourceExtension)),
                      std::ios::binary);
    out.write(reinterpret_cast<const char*>(program.data()),
              static_cast<std::streamsize>(program.size()));
    out.close();
    platform::sleep_ms(kCompileWaitMs);
    return 0;
}

// Makes `directory` the one in force: for scripts, for the process (a failure
// goes unnoticed, by design) and for the engine.
void enter_working_directory(vrkscript& engine, const std::string& directory) {
    host_state().workingDirectory = directory;
    platform::change_directory(directory);
    engine.workingDirectory = directory;
}

// Rebuilds a compiled program from its file, after letting go of the console
// where the platform has one to let go of. A file that cannot be opened ends
// the process abnormally.
vrkparser* load_compiled_program(vrkscript& engine, const std::string& path) {
    platform::detach_console();
    vrkparser* parser = new_program_parser(engine);
    log().log("loading executable %s", path.c_str());
    std::ifstream in(platform::file_path(path), std::ios::binary);
    if (!in.is_open()) platform::abort_process();
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in),
                                     std::istreambuf_iterator<char>()};
    construct_program(parser, bytes);
    return parser;
}

int run_one_shot(const CommandLineValues& values) {
    vrkscript& engine = create_engine();
    init_script(&engine);
    host_state().scriptArgument = values.scriptarg;
    register_scriptarg(&engine);

    if (!values.compile.empty()) return compile_to_file(engine, values.compile, false);

    vrkparser* parser = load_script(engine, values.runscript, true);
    vrkblock* root = root_block(parser);
    if (!root) {
        after_failed_load(engine, parser);
        return 0;
    }
    compile_root(root);
    int exitCode = 0;
    Watchdog watchdog(exitCode);

    // Without a separator the whole name stands as the directory, and the
    // change of directory fails without a word.
    std::string directory = directory_part(values.runscript);
    if (!values.workingDir.empty()) directory = values.workingDir;
    log().log("WORKING DIRECTORY: %s", directory.c_str());
    enter_working_directory(engine, directory);

    run_root(root);
    // No frame clock in this mode: between frames the loop polls.
    while (root_active(root)) frame_step(engine, nullptr);

    watchdog.stop();
    return exitCode;
}

int run_dependency_test() {
    print("DEP TEST\n");
    vrkscript& engine = create_engine();
    engine.scriptSearchPath = platform::script_folder();
    return 0;
}

// The frame clock of a normal run, or null after reporting why there is none.
std::unique_ptr<platform::FrameClock> create_frame_clock() {
    int error = 0;
    std::unique_ptr<platform::FrameClock> clock = platform::FrameClock::create(error);
    if (!clock) {
        print("CRITICAL ERROR: ");
        print("SetWaitableTimer failed: errno=" + std::to_string(error) + "\n");
        platform::sleep_ms(kClockFailureWaitMs);
    }
    return clock;
}

// Compile, normal run and prompt share their first steps. The prompt runs
// the named script first, if there is one, and then reads lines instead of
// watching the script folder.
int run_normal(RunMode mode, const CommandLineValues& values, const ScriptSelection& selection) {
    const bool prompt = mode == RunMode::prompt;
    const bool hasScript = !selection.scriptPath.empty() || !selection.compiledRun.empty();
    if (!prompt || hasScript) log().log("loading script %s\n", selection.scriptPath.c_str());
    vrkscript& engine = create_engine();
    init_script(&engine);
    engine.scriptSearchPath = platform::script_folder();

    if (mode == RunMode::compile) return compile_to_file(engine, values.compile, true);

    vrkhost_state& host = host_state();
    host.mainEngine = &engine;
    if (prompt && !hasScript) {
        // Nothing to load: the prompt works in the start directory.
        enter_working_directory(
            engine, values.workingDir.empty() ? platform::current_directory() : values.workingDir);
    } else {
        std::string scriptPath = source_path_to_load(selection.scriptPath, selection.compiledRun);
        vrkparser* parser = nullptr;
        if (!scriptPath.empty()) {
            parser = load_script(engine, scriptPath, true);
        } else {
            parser = load_compiled_program(engine, selection.compiledRun);
            scriptPath = selection.compiledRun;
        }

        host.scriptDirectory = directory_part(scriptPath);
        host.scriptPath = scriptPath;
        host.mainParser = parser;
        enter_working_directory(
            engine, values.workingDir.empty() ? host.scriptDirectory : values.workingDir);

        // `load` has compiled the script already; a compiled program needs nothing.
        if (vrkblock* root = root_block(parser))
            run_root(root);
        else
            after_failed_load(engine, parser);
    }

    std::unique_ptr<platform::FrameClock> clock = create_frame_clock();
    context().wakeCallback = [clock = clock.get()] {
        host_state().wakeRequested.store(1);
        if (clock) clock->wake();
    };
    int exitCode = 0;
    if (prompt) {
        exitCode = run_prompt_session(engine, clock.get());
    } else {
        start_file_watcher(engine, host.scriptDirectory);
        run_frame_loop(engine, clock.get());
    }

    // The frame loop does not end by itself; the prompt does. The clock goes last.
    context().wakeCallback = nullptr;
    return exitCode;
}

}  // namespace

int run_host(int argc, const char* const* argv) {
    vrkcontext& ctx = context();
    ctx.depth_limit = kHostRunDepthLimit;
    ctx.depth_budget = kHostRunDepthLimit + 1;  // the run that would take it to 0 is refused
    const std::size_t perRun = platform::sanitized_build() ? kSanitizedRunStackBytes
                                                           : kRunStackBytes;
    platform::prepare_heap();
    int exitCode = 0;
    auto work = [&] { exitCode = entry(argc, argv); };
    // Without a thread of its own the host runs on the process's stack.
    if (!platform::run_with_stack(kBaseStackBytes + perRun * kHostRunDepthLimit, work)) work();
    return exitCode;
}

int entry(int argc, const char* const* argv) {
    platform::prepare_standard_streams();
    ArgumentParser parser(argc, argv);
    // Sorting the arguments prints nothing, so it may come first: --help,
    // --version and --quiet decide what the start-up prints.
    parser.parse();
    const CommandLineValues values = read_command_line(parser);
    const RunPlan plan = plan_run(values, parser.positional);
    if (plan.mode == RunMode::help) {
        print(usage_text());
        return 0;
    }
    if (plan.mode == RunMode::version) {
        print(version_line(context().version) + "\n");
        return 0;
    }

    log().quiet = values.quiet;
    // Line tables are kept from the first compile on, the init script's included.
    context().debug_info = values.debug;
    announce_start(parser, values.quiet);
    if (plan.selected && plan.selection.unknownType)
        log().error("invalid script file type? %s", plan.selection.scriptPath.c_str());

    switch (plan.mode) {
        case RunMode::help:
        case RunMode::version: return 0;
        case RunMode::one_shot_run:
        case RunMode::one_shot_compile: return run_one_shot(values);
        case RunMode::dependency_test: return run_dependency_test();
        case RunMode::compile:
        case RunMode::normal_run:
        case RunMode::prompt: return run_normal(plan.mode, values, plan.selection);
        case RunMode::registration: break;
    }
    return register_file_types(platform::executable_path());
}

}  // namespace vrk
