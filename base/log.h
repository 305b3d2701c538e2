// The process-wide log: every message of the system passes through here.
//
// Errors, warnings, plain log lines, the output of `print` and the reports of
// the compiler and the virtual machine are formatted into one fixed buffer,
// written to standard output (coloured when stdout is a terminal) and handed to
// the listeners that scripts or native code registered. A log call never stops
// anything; what happens after a failure is the caller's decision.
//
// One message is written at a time. Messages of different threads take turns
// (`writeTurn`): a worker's report waits while the main thread writes between
// frames, when it holds no script lock. Re-entry is refused rather than queued:
// while one log call is under way on a thread (`writer`), a second one on the
// same thread, for example from a listener that prints, produces nothing at
// all. `errorNamed` relies on exactly that and is therefore silent by
// construction.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/compiler.h"

namespace vrk {

// Kind of a message as listeners see it.
enum class ScriptLogType : int { error = 0, warning = 1, log = 2 };

// Size of each of the two formatting buffers.
inline constexpr std::size_t kLogBufferSize = 0x100000;

// A registered receiver of log messages; returning false unregisters it.
struct vrklistener {
    uint32_t id;                                               // handle given out at registration
    std::function<bool(ScriptLogType, const char*)> callback;  // receives the type and the text
};

class vrklog {
public:
    vrklog();

    // "[ERR]: %s\n", red while printing.
    void error(const char* format, ...) VRK_PRINTF_FORMAT(2, 3);
    // "[WARN]: %s\n", yellow while printing.
    void warn(const char* format, ...) VRK_PRINTF_FORMAT(2, 3);
    // "[LOG]: %s\n".
    void log(const char* format, ...) VRK_PRINTF_FORMAT(2, 3);
    // "[LOG]: %s\n" with the text taken literally (no formatting): used by print.
    void logText(const char* text);
    // Formatted text without prefix or line end. The formatted text is used as the
    // format of the final output a second time, so "%" in it is interpreted again.
    void raw(const char* format, ...) VRK_PRINTF_FORMAT(2, 3);
    // Report of a wrong builtin call; formats, then calls error() while this
    // thread still holds the log, so nothing is printed or passed on.
    void errorNamed(const char* const* name, const char* format, ...) VRK_PRINTF_FORMAT(3, 4);

    // Adds a listener and returns its id (the first is 1).
    uint32_t addListener(std::function<bool(ScriptLogType, const char*)> callback);
    // Removes the listener with that id; false if there was none.
    bool removeListener(uint32_t id);
    // Number of listeners registered now.
    std::size_t listenerCount() const { return listeners.size(); }

    // Where the writers format their text. A caller may format into it itself and
    // pass it as the format: then no second formatting happens.
    char* buffer() { return logBuffer.get(); }

    // Quiet console (for pipes): plain log lines are not shown, `print` text
    // goes out bare (no "[LOG]: ", no colour), errors and warnings go to
    // standard error. Listeners see every message as usual.
    bool quiet = false;                  // console output in the quiet form
    uint32_t lastListenerId = 0;         // last id given out, pre-incremented
    uint8_t inListeners = 0;             // 1 while listeners are being called
    std::vector<vrklistener> listeners;  // in order of registration

private:
    // The common path of every writer; `prefix` may be null (raw output).
    void write(ScriptLogType type, const char* prefix, bool restore_colour, int colour,
               const char* format, va_list* args, bool literal);

    // The buffers are not cleared beyond their first byte: every use writes
    // before it reads, and pages never written are never touched.
    std::unique_ptr<char[]> logBuffer;       // formatting buffer of the writers
    std::unique_ptr<char[]> namedLogBuffer;  // formatting buffer of errorNamed
    std::unique_ptr<char[]> outBuffer;       // final line assembled for stdout
    std::mutex writeTurn;                    // held by the thread writing a message
    std::atomic<uint32_t> writer{0};         // id of that thread (current_thread_id), 0 for none

    friend class log_turn;
};

// The process's log object (held by the process context).
vrklog& log();

// Console colour attributes in the classic 16-colour numbering; mapped to ANSI
// escapes and written only when stdout is a terminal.
void set_console_colour(int attribute);

}  // namespace vrk
