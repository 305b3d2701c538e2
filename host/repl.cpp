// The prompt session: a reader thread feeding the engine's prompt queue.
#include "host/repl.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "base/context.h"
#include "base/log.h"
#include "host/engine.h"
#include "host/frame_loop.h"
#include "host/run_modes.h"
#include "platform/line_editor.h"
#include "platform/system.h"

namespace vrk {

namespace {

constexpr const char* kPrompt = "> ";
constexpr const char* kContinuationPrompt = "... ";

// How long the reader waits, at most, for a queued line to finish before it
// shows the next prompt (so that the line's output comes first), and the
// step of that wait. A line that runs longer keeps running; the next prompt
// comes anyway and further lines queue behind it.
constexpr int kSettleSteps = 50;
constexpr int64_t kSettleStepMs = 5;

// The queue is shared by the reader and the main thread. The script lock is
// taken as such, not through ScriptLock, which takes nothing on the main
// thread (outside a frame the main thread does not hold it).
using queue_guard = std::lock_guard<std::recursive_mutex>;

// True while the queue holds lines or the prompt's root block is active.
bool prompt_busy(vrkscript& engine) {
    queue_guard lock(context().global_lock);
    return !engine.promptLines.empty() ||
           (engine.promptParser && root_active(root_block(engine.promptParser)));
}

void queue_line(vrkscript& engine, std::string text) {
    {
        queue_guard lock(context().global_lock);
        engine.promptLines.push_back(std::move(text));
    }
    if (context().wakeCallback) context().wakeCallback();
}

// The reader thread: prompt, read, gather, queue, until the input ends.
void read_lines(vrkscript& engine, std::atomic<bool>& done) {
    std::unique_ptr<platform::LineEditor> editor = platform::LineEditor::open(
        platform::prompt_history_path());
    std::string statement;
    for (;;) {
        for (int i = 0; i < kSettleSteps && prompt_busy(engine); ++i)
            platform::sleep_ms(kSettleStepMs);
        const platform::LineEditor::Input input = editor->read(
            statement.empty() ? kPrompt : kContinuationPrompt);
        if (input.status == platform::LineEditor::Status::end) break;
        if (input.status == platform::LineEditor::Status::interrupted) {
            statement.clear();
            continue;
        }
        editor->remember(input.text);
        statement += input.text;
        statement += '\n';
        if (open_brace_depth(statement) > 0) continue;
        queue_line(engine, std::move(statement));
        statement.clear();
    }
    done.store(true);
    if (context().wakeCallback) context().wakeCallback();
}

}  // namespace

int open_brace_depth(const std::string& text) {
    int depth = 0;
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\n') {
            quoted = false;  // a string does not run past its line
        } else if (c == '"') {
            quoted = !quoted;
        } else if (quoted) {
            continue;
        } else if (c == '/' && i + 1 < text.size() && text[i + 1] == '/') {
            const std::size_t end = text.find('\n', i);
            if (end == std::string::npos) break;
            i = end - 1;
        } else if (c == '{') {
            ++depth;
        } else if (c == '}') {
            --depth;
        }
    }
    return depth;
}

int run_prompt_session(vrkscript& engine, platform::FrameClock* clock) {
    engine.promptParser = create_prompt_parser(engine);
    if (!root_block(engine.promptParser)) {
        log().error("cannot run prompt!");
        return 0;
    }
    std::atomic<bool> done{false};
    std::thread reader([&engine, &done] { read_lines(engine, done); });
    // The session ends when the input has ended and every line typed has run.
    while (!done.load() || prompt_busy(engine)) frame_step(engine, clock);
    reader.join();
    return 0;
}

}  // namespace vrk
