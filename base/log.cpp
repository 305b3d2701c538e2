// The log object: formatting, console output, colour and listeners.
#include "base/log.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "base/context.h"
#include "base/script_lock.h"
#include "platform/console.h"
#include "platform/system.h"

namespace vrk {

namespace {

// Colour attributes of the writers.
constexpr int kColourRed = 4;
constexpr int kColourYellow = 6;
constexpr int kColourDefault = 7;

// Room for the longest prefix line around a full buffer ("[WARN]: " and "\n").
constexpr std::size_t kOutBufferSize = kLogBufferSize + 16;

// Listener calls may not throw: an empty callback (std::bad_function_call) or
// any other exception out of a listener ends the process here instead of
// leaving the log half-way through a message.
bool call_listener(const std::function<bool(ScriptLogType, const char*)>& callback,
                   ScriptLogType type, const char* text) noexcept {
    return callback(type, text);
}

// One conversion of the second formatting pass, with a zero in place of the
// argument that is not there. `stars` counts the `*` width and precision fields,
// which take zero as well.
template <class T>
int format_zero(char* dst, std::size_t room, const char* directive, int stars, T value) {
    switch (stars) {
        case 0: return std::snprintf(dst, room, directive, value);
        case 1: return std::snprintf(dst, room, directive, 0, value);
        default: return std::snprintf(dst, room, directive, 0, 0, value);
    }
}

// The second interpretation of raw output: `text` is used as a printf format
// that has no arguments. Conversions read zero for the missing argument:
// numbers print 0, text conversions "(null)", characters nothing, and %n stores
// nothing. "%%" becomes "%". An unknown conversion stays as it is written, and
// a conversion cut off by the end of the text ends the output, as the C library
// does. Returns the number of bytes put into `out` (always NUL-terminated).
std::size_t format_again(const char* text, char* out, std::size_t size) {
    std::size_t n = 0;
    auto put = [&](const char* s, std::size_t len) {
        const std::size_t room = size - 1 - n;
        if (len > room) len = room;
        std::memcpy(out + n, s, len);
        n += len;
    };
    const char* p = text;
    while (*p && n + 1 < size) {
        if (*p != '%') {
            const char* next = std::strchr(p, '%');
            const std::size_t len = next ? static_cast<std::size_t>(next - p) : std::strlen(p);
            put(p, len);
            p += len;
            continue;
        }
        const char* start = p++;
        // The conversion is rebuilt without its length modifier: every argument
        // is zero, so its width does not matter.
        char directive[64];
        std::size_t s = 0;
        directive[s++] = '%';
        auto keep = [&](char c) {
            if (s < sizeof(directive) - 2) directive[s++] = c;
        };
        int stars = 0;
        while (*p && std::strchr("-+ #0'", *p)) keep(*p++);
        if (*p == '*') {
            keep(*p++);
            ++stars;
        } else {
            while (std::isdigit(static_cast<unsigned char>(*p))) keep(*p++);
        }
        if (*p == '.') {
            keep(*p++);
            if (*p == '*') {
                keep(*p++);
                ++stars;
            } else {
                while (std::isdigit(static_cast<unsigned char>(*p))) keep(*p++);
            }
        }
        while (*p && std::strchr("hlLqjzZt", *p)) ++p;
        const char conv = *p;
        if (!conv) break;
        ++p;
        char* dst = out + n;
        const std::size_t room = size - n;
        int written = 0;
        switch (conv) {
            case '%': put("%", 1); continue;
            case 'n': continue;
            case 'd':
            case 'i':
            case 'o':
            case 'u':
            case 'x':
            case 'X':
                directive[s++] = conv;
                directive[s] = 0;
                written = format_zero(dst, room, directive, stars, 0);
                break;
            case 'e':
            case 'E':
            case 'f':
            case 'F':
            case 'g':
            case 'G':
            case 'a':
            case 'A':
                directive[s++] = conv;
                directive[s] = 0;
                written = format_zero(dst, room, directive, stars, 0.0);
                break;
            case 'c':
                directive[s++] = 's';
                directive[s] = 0;
                written = format_zero(dst, room, directive, stars, "");
                break;
            case 's':
                directive[s++] = 's';
                directive[s] = 0;
                written = format_zero(dst, room, directive, stars, "(null)");
                break;
            case 'p':
                directive[s++] = 'p';
                directive[s] = 0;
                written = format_zero(dst, room, directive, stars, static_cast<void*>(nullptr));
                break;
            default: put(start, static_cast<std::size_t>(p - start)); continue;
        }
        if (written > 0) n += std::min(static_cast<std::size_t>(written), room - 1);
    }
    out[n] = 0;
    return n;
}

}  // namespace

// One message's hold on the log: it waits for another thread's message to be
// written, and is not taken at all (`taken` false) when this thread is writing
// one already.
class log_turn {
public:
    explicit log_turn(vrklog& log) : writer(log.writer) {
        const uint32_t me = current_thread_id();
        // Only this thread ever stores its own id, so the test needs no order.
        if (writer.load(std::memory_order_relaxed) == me) return;
        hold = std::unique_lock<std::mutex>(log.writeTurn);
        writer.store(me, std::memory_order_relaxed);
    }
    ~log_turn() {
        if (hold.owns_lock()) writer.store(0, std::memory_order_relaxed);
    }
    log_turn(const log_turn&) = delete;
    log_turn& operator=(const log_turn&) = delete;

    bool taken() const { return hold.owns_lock(); }

private:
    std::atomic<uint32_t>& writer;      // the log's record of the writing thread
    std::unique_lock<std::mutex> hold;  // the log's turn, when this message took it
};

vrklog::vrklog()
    : logBuffer(new char[kLogBufferSize]),
      namedLogBuffer(new char[kLogBufferSize]),
      outBuffer(new char[kOutBufferSize]) {
    logBuffer[0] = 0;
    namedLogBuffer[0] = 0;
    outBuffer[0] = 0;
}

void vrklog::write(ScriptLogType type, const char* prefix, bool restore_colour, int colour,
                   const char* format, va_list* args, bool literal) {
    if (!format) return;
    ScriptLock lock;
    // A message while another is under way on this thread is dropped, not
    // queued: that keeps a listener that logs from producing a nested line.
    const log_turn turn(*this);
    if (!turn.taken()) return;

    if (!quiet) set_console_colour(colour);

    char* text = logBuffer.get();
    if (format != text) {
        if (literal) {
            // Copied as it is, so "%" stays; text beyond the buffer is cut.
            const void* end = std::memchr(format, 0, kLogBufferSize - 1);
            const std::size_t len = end ? static_cast<std::size_t>(static_cast<const char*>(end) -
                                                                   format)
                                        : kLogBufferSize - 1;
            std::memcpy(text, format, len);
            text[len] = 0;
        } else {
            std::vsnprintf(text, kLogBufferSize, format, *args);
        }
    }

    // In the quiet form only `print` text (literal) keeps a line of its own
    // on standard output, without its prefix.
    const bool toStderr = quiet && type != ScriptLogType::log;
    const bool shown = !quiet || toStderr || literal || !prefix;
    if (quiet && literal) prefix = "%s\n";

    char* out = outBuffer.get();
    std::size_t length;
    if (!shown) {
        length = 0;
    } else if (prefix) {
        const int r = std::snprintf(out, kOutBufferSize, prefix, text);
        length = r < 0 ? 0 : std::min(static_cast<std::size_t>(r), kOutBufferSize - 1);
    } else {
        length = format_again(text, out, kOutBufferSize);
    }
    if (toStderr) {
        platform::write_stderr(out, length);
    } else if (shown) {
        platform::write_stdout(out, length);
        platform::flush_stdout();
    }

    if (!inListeners) {
        inListeners = 1;
        // Listeners removed during the walk are only marked (id 0) and dropped
        // here or below; listeners added during it are appended. So the record at
        // `i` stays put across the call, and the callback is moved out for the
        // call so that a growing vector cannot move it while it runs.
        for (std::size_t i = 0; i < listeners.size();) {
            if (listeners[i].id == 0) {
                listeners.erase(listeners.begin() + static_cast<std::ptrdiff_t>(i));
                continue;
            }
            auto callback = std::move(listeners[i].callback);
            const bool keep = call_listener(callback, type, text);
            if (!keep || listeners[i].id == 0) {
                listeners.erase(listeners.begin() + static_cast<std::ptrdiff_t>(i));
                continue;
            }
            listeners[i].callback = std::move(callback);
            ++i;
        }
        std::erase_if(listeners, [](const vrklistener& l) { return l.id == 0; });
        inListeners = 0;
        if (restore_colour && !quiet) set_console_colour(kColourDefault);
    }
}

void vrklog::error(const char* format, ...) {
    va_list args;
    va_start(args, format);
    write(ScriptLogType::error, "[ERR]: %s\n", true, kColourRed, format, &args, false);
    va_end(args);
}

void vrklog::warn(const char* format, ...) {
    va_list args;
    va_start(args, format);
    write(ScriptLogType::warning, "[WARN]: %s\n", true, kColourYellow, format, &args, false);
    va_end(args);
}

void vrklog::log(const char* format, ...) {
    va_list args;
    va_start(args, format);
    write(ScriptLogType::log, "[LOG]: %s\n", false, kColourDefault, format, &args, false);
    va_end(args);
}

void vrklog::logText(const char* text) {
    write(ScriptLogType::log, "[LOG]: %s\n", false, kColourDefault, text, nullptr, true);
}

void vrklog::raw(const char* format, ...) {
    va_list args;
    va_start(args, format);
    write(ScriptLogType::log, nullptr, false, kColourDefault, format, &args, false);
    va_end(args);
}

void vrklog::errorNamed(const char* const* name, const char* format, ...) {
    ScriptLock lock;
    const log_turn turn(*this);
    if (!turn.taken()) return;
    if (format) {
        va_list args;
        va_start(args, format);
        std::vsnprintf(namedLogBuffer.get(), kLogBufferSize, format, args);
        va_end(args);
    } else {
        namedLogBuffer[0] = 0;
    }
    // This thread still holds the log, so this call stops at once: the report
    // is silent by construction.
    error("(%s) -> %s", name && *name ? *name : "", namedLogBuffer.get());
}

uint32_t vrklog::addListener(std::function<bool(ScriptLogType, const char*)> callback) {
    ScriptLock lock;
    uint32_t id = ++lastListenerId;
    if (id == 0) id = ++lastListenerId;  // 0 marks a removed record
    listeners.push_back(vrklistener{id, std::move(callback)});
    return id;
}

bool vrklog::removeListener(uint32_t id) {
    if (id == 0) return false;
    ScriptLock lock;
    for (std::size_t i = 0; i < listeners.size(); ++i) {
        if (listeners[i].id != id) continue;
        if (inListeners) {
            listeners[i].id = 0;  // the walk under way drops it
        } else {
            listeners.erase(listeners.begin() + static_cast<std::ptrdiff_t>(i));
        }
        return true;
    }
    return false;
}

vrklog& log() { return context().log; }

void set_console_colour(int attribute) { platform::set_console_colour(attribute); }

}  // namespace vrk
