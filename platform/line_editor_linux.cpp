// The line editor through libedit, or plain reads when stdin is no terminal.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <histedit.h>
#include <pthread.h>
#include <pwd.h>
#include <system_error>
#include <unistd.h>

#include "platform/line_editor.h"

namespace vrk::platform {

namespace {

// Lines the history keeps.
constexpr int kHistorySize = 1000;

// Set by the SIGINT handler, cleared when a read begins. A signal handler can
// reach nothing but such flags.
volatile std::sig_atomic_t interruptRequested = 0;
// The thread that reads lines. The signal may land on any thread of the
// process; it is passed on to this one, whose read it has to interrupt.
pthread_t readerThread{};

void on_interrupt(int) {
    if (!pthread_equal(pthread_self(), readerThread)) {
        pthread_kill(readerThread, SIGINT);
        return;
    }
    interruptRequested = 1;
}

// Ctrl-C only sets the flag while the prompt exists, and does not restart an
// interrupted read, so that a read in progress notices it.
void catch_interrupt() {
    readerThread = pthread_self();
    struct sigaction action {};
    action.sa_handler = on_interrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(SIGINT, &action, nullptr);
}

// Reads one character for libedit: UTF-8 decoded from standard input. Returns
// 1 for a character, 0 at the end of the input and -1 when Ctrl-C was pressed
// (a signal, or the character itself when the terminal passes it through).
int read_character(EditLine*, wchar_t* out) {
    unsigned char bytes[4];
    std::size_t have = 0;
    std::size_t need = 1;
    while (have < need) {
        const ssize_t n = ::read(STDIN_FILENO, bytes + have, 1);
        if (n == 0) return 0;
        if (n < 0) {
            if (errno == EINTR && !interruptRequested) continue;
            return -1;
        }
        if (have == 0) {
            const unsigned char b = bytes[0];
            if (b == 0x03) {
                interruptRequested = 1;
                return -1;
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
    explicit LibeditEditor(std::string path) : historyPath(std::move(path)) {
        history = ::history_init();
        ::history(history, &event, H_SETSIZE, kHistorySize);
        ::history(history, &event, H_SETUNIQUE, 1);
        if (!historyPath.empty()) ::history(history, &event, H_LOAD, historyPath.c_str());
        editor = ::el_init("vorka", stdin, stdout, stderr);
        ::el_set(editor, EL_EDITOR, "emacs");
        ::el_set(editor, EL_HIST, ::history, history);
        ::el_set(editor, EL_CLIENTDATA, this);
        ::el_set(editor, EL_PROMPT, prompt_text);
        ::el_set(editor, EL_GETCFN, read_character);
        ::el_source(editor, nullptr);  // the user's ~/.editrc, if any
        catch_interrupt();
    }

    ~LibeditEditor() override {
        ::el_end(editor);
        ::history_end(history);
    }

    Input read(const std::string& prompt) override {
        currentPrompt = prompt;  // libedit asks for it through prompt_text
        interruptRequested = 0;
        int count = 0;
        const char* line = ::el_gets(editor, &count);
        Input input;
        if (interruptRequested) {
            interruptRequested = 0;
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
        ::history(history, &event, H_ENTER, line.c_str());
        if (historyPath.empty()) return;
        std::error_code error;
        std::filesystem::create_directories(std::filesystem::path(historyPath).parent_path(),
                                            error);
        ::history(history, &event, H_SAVE, historyPath.c_str());
    }

private:
    // The prompt text for libedit, which asks for it through a callback.
    static const char* prompt_text(EditLine* el) {
        void* self = nullptr;
        ::el_get(el, EL_CLIENTDATA, &self);
        return static_cast<LibeditEditor*>(self)->currentPrompt.c_str();
    }

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
    if (::isatty(STDIN_FILENO) == 1) return std::make_unique<LibeditEditor>(historyPath);
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
