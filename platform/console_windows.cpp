// Console colour on Windows: the attribute goes straight to the console.
#include <cstdio>
#include <cstdlib>
#include <windows.h>

#include "platform/console.h"

namespace vrk::platform {

void set_console_colour(int attribute) {
    const HANDLE out = ::GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    // A file or a pipe has no colours: nothing is written into captured output.
    if (out == INVALID_HANDLE_VALUE || out == nullptr || !::GetConsoleMode(out, &mode)) return;
    // What the C stream holds was written under the previous colour.
    std::fflush(stdout);
    ::SetConsoleTextAttribute(out, static_cast<WORD>(attribute & 0xFF));
}

void clear_console() {
    const HANDLE out = ::GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    if (out == INVALID_HANDLE_VALUE || out == nullptr || !::GetConsoleMode(out, &mode)) return;
    std::fflush(stdout);
    std::system("cls");
}

void show_console_window(bool show) {
    const HWND window = ::GetConsoleWindow();
    if (window) ::ShowWindow(window, show ? SW_SHOW : SW_HIDE);
}

void flush_stdout() { std::fflush(stdout); }

}  // namespace vrk::platform
