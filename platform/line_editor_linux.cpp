// The line editor through libedit, or plain reads when stdin is no terminal.
//
// libedit (and the terminal libraries it needs) is opened with dlopen the
// first time a prompt opens at a terminal, not linked: a run without a prompt,
// which is nearly every run, does not pay for loading and binding four more
// shared libraries at start-up. Without the library the prompt reads plain
// lines, as it does when standard input is no terminal.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <histedit.h>
#include <poll.h>
#include <pwd.h>
#include <system_error>
#include <unistd.h>

#include "platform/line_editor.h"

namespace vrk::platform {

namespace {

// Lines the history keeps.
constexpr int kHistorySize = 1000;

// The libedit entries the editor uses, looked up in the library once.
struct Libedit {
    EditLine* (*init)(const char*, FILE*, FILE*, FILE*);  // el_init
    int (*set)(EditLine*, int, ...);                      // el_set
    int (*get)(EditLine*, int, ...);                      // el_get
    const char* (*gets)(EditLine*, int*);                 // el_gets
    const LineInfo* (*line)(EditLine*);                   // el_line
    int (*source)(EditLine*, const char*);                // el_source
    void (*end)(EditLine*);                               // el_end
    History* (*history_init)();                           // history_init
    int (*history)(History*, HistEvent*, int, ...);       // history
    void (*history_end)(History*);                        // history_end
};

// Looks one entry up; false when it is missing.
template <typename F>
bool find_entry(void* library, const char* name, F& out) {
    void* entry = ::dlsym(library, name);
    if (!entry) return false;
    out = reinterpret_cast<F>(entry);
    return true;
}

// The library's entries, or null when it cannot be opened (the library stays
// loaded for the life of the process once it was found).
const Libedit* libedit() {
    static const Libedit* const loaded = []() -> const Libedit* {
        void* library = ::dlopen("libedit.so.2", RTLD_NOW | RTLD_LOCAL);
        if (!library) library = ::dlopen("libedit.so", RTLD_NOW | RTLD_LOCAL);
        if (!library) return nullptr;
        static Libedit entries{};
        const bool all = find_entry(library, "el_init", entries.init) &&
                         find_entry(library, "el_set", entries.set) &&
                         find_entry(library, "el_get", entries.get) &&
                         find_entry(library, "el_gets", entries.gets) &&
                         find_entry(library, "el_line", entries.line) &&
                         find_entry(library, "el_source", entries.source) &&
                         find_entry(library, "el_end", entries.end) &&
                         find_entry(library, "history_init", entries.history_init) &&
                         find_entry(library, "history", entries.history) &&
                         find_entry(library, "history_end", entries.history_end);
        if (!all) {
            ::dlclose(library);
            return nullptr;
        }
        return &entries;
    }();
    return loaded;
}

// Ctrl-C reaches the reader in two ways. While the editor reads, the terminal
// is in its raw mode but still turns Ctrl-C into SIGINT; between reads (while a
// typed line runs) the terminal is cooked, echoes "^C" and drops what was typed
// ahead. Either way the signal may land on any thread of the process and at any
// moment, also in the instant between the reader's last check and its next
// blocking read. So the handler only writes a byte into a pipe (the one thing
// a handler may safely do), and the reader waits on standard input and that
// pipe together: an interrupt can never be missed by a read that is under way,
// nor be left over for a later one.
//
// The pipe's two ends; created once, with the handler, for the process.
int interruptPipe[2] = {-1, -1};
// Set when a read saw the interrupt, cleared when a read begins.
bool interruptSeen = false;

void on_interrupt(int) {
    const int saved = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(interruptPipe[1], &byte, 1);
    errno = saved;
}

// Empties the pipe; true when an interrupt was waiting in it.
bool take_interrupts() {
    bool any = false;
    char bytes[64];
    while (::read(interruptPipe[0], bytes, sizeof bytes) > 0) any = true;
    return any;
}

// Ctrl-C only writes into the pipe while the prompt exists.
void catch_interrupt() {
    if (interruptPipe[0] < 0 && ::pipe2(interruptPipe, O_NONBLOCK | O_CLOEXEC) != 0) return;
    struct sigaction action {};
    action.sa_handler = on_interrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
}

// Waits until standard input has a byte for us (true) or Ctrl-C was pressed
// (false).
bool wait_for_input() {
    for (;;) {
        pollfd waits[2] = {{STDIN_FILENO, POLLIN, 0}, {interruptPipe[0], POLLIN, 0}};
        const int count = interruptPipe[0] < 0 ? 1 : 2;
        if (::poll(waits, count, -1) < 0) {
            if (errno == EINTR) continue;
            return true;  // let the read report what is wrong
        }
        if (count == 2 && (waits[1].revents & POLLIN) && take_interrupts()) return false;
        if (waits[0].revents != 0) return true;
    }
}

// Reads one character for libedit: UTF-8 decoded from standard input. Returns
// 1 for a character, 0 at the end of the input and -1 when Ctrl-C was pressed
// (a signal, or the character itself when the terminal passes it through).
//
// Ctrl-D typed while no read was under way reaches us changed: the cooked
// terminal ended a line with it and stored a NUL byte in its place, which the
// editor's raw read then hands over as data. On an empty line that NUL is the
// end of the input, as the Ctrl-D itself would have been; after typed text it
// only ended the line early, and is skipped.
int read_character(EditLine* el, wchar_t* out) {
    unsigned char bytes[4];
    std::size_t have = 0;
    std::size_t need = 1;
    while (have < need) {
        if (have == 0 && !wait_for_input()) {
            interruptSeen = true;
            return -1;
        }
        const ssize_t n = ::read(STDIN_FILENO, bytes + have, 1);
        if (n == 0) return 0;
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN) continue;
            return -1;
        }
        if (have == 0) {
            const unsigned char b = bytes[0];
            if (b == 0x03) {
                interruptSeen = true;
                return -1;
            }
            if (b == 0x00) {
                const LineInfo* line = libedit()->line(el);
                if (line->buffer == line->lastchar) return 0;
                continue;
            }
            need = b < 0x80           ? 1
                   : (b >> 5) == 0x6  ? 2
                   : (b >> 4) == 0xE  ? 3
                   : (b >> 3) == 0x1E ? 4
                                      : 1;
        }
        ++have;
    }
    wchar_t c = bytes[0];
    if (need > 1) {
        c = bytes[0] & (0x7F >> need);
        for (std::size_t i = 1; i < need; ++i) c = (c << 6) | (bytes[i] & 0x3F);
    }
    *out = c;
    return 1;
}

class LibeditEditor final : public LineEditor {
public:
    LibeditEditor(const Libedit& library, std::string path)
        : lib(library), historyPath(std::move(path)) {
        history = lib.history_init();
        lib.history(history, &event, H_SETSIZE, kHistorySize);
        lib.history(history, &event, H_SETUNIQUE, 1);
        if (!historyPath.empty()) lib.history(history, &event, H_LOAD, historyPath.c_str());
        editor = lib.init("vorka", stdin, stdout, stderr);
        lib.set(editor, EL_EDITOR, "emacs");
        lib.set(editor, EL_HIST, lib.history, history);
        lib.set(editor, EL_CLIENTDATA, this);
        lib.set(editor, EL_PROMPT, prompt_text);
        lib.set(editor, EL_GETCFN, read_character);
        lib.source(editor, nullptr);  // the user's ~/.editrc, if any
        catch_interrupt();
    }

    ~LibeditEditor() override {
        lib.end(editor);
        lib.history_end(history);
    }

    Input read(const std::string& prompt) override {
        currentPrompt = prompt;  // libedit asks for it through prompt_text
        // A Ctrl-C pressed while no read was under way has done its work: the
        // terminal dropped what was typed ahead of it.
        if (interruptPipe[0] >= 0) take_interrupts();
        interruptSeen = false;
        int count = 0;
        const char* line = lib.gets(editor, &count);
        Input input;
        if (interruptSeen) {
            interruptSeen = false;
            std::fputs("^C\n", stdout);
            std::fflush(stdout);
            input.status = Status::interrupted;
            return input;
        }
        if (!line || count <= 0) {
            std::fputs("\n", stdout);
            std::fflush(stdout);
            return input;
        }
        input.status = Status::line;
        input.text = line;
        while (!input.text.empty() && (input.text.back() == '\n' || input.text.back() == '\r'))
            input.text.pop_back();
        return input;
    }

    void remember(const std::string& line) override {
        if (line.empty()) return;
        lib.history(history, &event, H_ENTER, line.c_str());
        if (historyPath.empty()) return;
        std::error_code error;
        std::filesystem::create_directories(std::filesystem::path(historyPath).parent_path(),
                                            error);
        lib.history(history, &event, H_SAVE, historyPath.c_str());
    }

private:
    // The prompt text for libedit, which asks for it through a callback.
    static const char* prompt_text(EditLine* el) {
        void* self = nullptr;
        libedit()->get(el, EL_CLIENTDATA, &self);
        return static_cast<LibeditEditor*>(self)->currentPrompt.c_str();
    }

    const Libedit& lib;          // the library's entries
    std::string currentPrompt;   // prompt shown by the read under way
    std::string historyPath;     // history file; "" for none
    History* history = nullptr;  // the lines typed so far
    HistEvent event{};           // result record of history calls
    EditLine* editor = nullptr;  // the line editor
};

// Standard input is not a terminal: plain lines, no editing, no history.
class PlainReader final : public LineEditor {
public:
    Input read(const std::string& prompt) override {
        std::fputs(prompt.c_str(), stdout);
        std::fflush(stdout);
        Input input;
        std::string text;
        int c;
        while ((c = std::getchar()) != EOF && c != '\n') text += static_cast<char>(c);
        if (c == EOF && text.empty()) return input;
        input.status = Status::line;
        input.text = std::move(text);
        return input;
    }

    void remember(const std::string&) override {}
};

}  // namespace

std::unique_ptr<LineEditor> LineEditor::open(const std::string& historyPath) {
    if (::isatty(STDIN_FILENO) == 1) {
        if (const Libedit* library = libedit())
            return std::make_unique<LibeditEditor>(*library, historyPath);
    }
    return std::make_unique<PlainReader>();
}

std::string prompt_history_path() {
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state && state[0] == '/') return std::string(state) + "/vorka/history";
    std::string home;
    if (const char* h = std::getenv("HOME")) home = h;
    if (home.empty()) {
        if (const passwd* user = ::getpwuid(::getuid())) home = user->pw_dir ? user->pw_dir : "";
    }
    if (home.empty()) return {};
    return home + "/.local/state/vorka/history";
}

}  // namespace vrk::platform
