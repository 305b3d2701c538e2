// Windows implementation of platform/line_editor.h: the console's own line
// editing (its cooked input mode keeps a history of its own while the program
// runs), with the history file kept as on Linux. Ctrl-Z then Enter ends the
// input; Ctrl-C abandons the line being typed.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <windows.h>

#include "platform/line_editor.h"

namespace vrk::platform {

namespace {

// Set by the console's Ctrl-C handler, cleared when a read begins.
volatile LONG interruptRequested = 0;

BOOL WINAPI on_control(DWORD type) {
    if (type != CTRL_C_EVENT) return FALSE;
    InterlockedExchange(&interruptRequested, 1);
    return TRUE;
}

class ConsoleLineEditor : public LineEditor {
public:
    explicit ConsoleLineEditor(std::string historyPath) : path(std::move(historyPath)) {
        SetConsoleCtrlHandler(on_control, TRUE);
    }
    ~ConsoleLineEditor() override { SetConsoleCtrlHandler(on_control, FALSE); }

    Input read(const std::string& prompt) override {
        InterlockedExchange(&interruptRequested, 0);
        std::fputs(prompt.c_str(), stdout);
        std::fflush(stdout);
        Input input;
        std::string line;
        int c = 0;
        while ((c = std::fgetc(stdin)) != EOF && c != '\n') line.push_back(static_cast<char>(c));
        if (InterlockedExchange(&interruptRequested, 0)) {
            std::clearerr(stdin);
            input.status = Status::interrupted;
            return input;
        }
        if (c == EOF && line.empty()) return input;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        input.status = Status::line;
        input.text = std::move(line);
        return input;
    }

    void remember(const std::string& line) override {
        if (path.empty() || line.empty()) return;
        std::error_code error;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
        std::ofstream out(path, std::ios::app | std::ios::binary);
        out << line << '\n';
    }

private:
    std::string path;  // the history file, "" for none
};

}  // namespace

std::unique_ptr<LineEditor> LineEditor::open(const std::string& historyPath) {
    return std::make_unique<ConsoleLineEditor>(historyPath);
}

std::string prompt_history_path() {
    const char* appData = std::getenv("LOCALAPPDATA");
    if (!appData || !appData[0]) return {};
    return std::string(appData) + "/vorka/history";
}

}  // namespace vrk::platform
