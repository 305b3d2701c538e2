// Console colour on Linux: classic console attributes turned into ANSI escapes.
#include <cstdio>

#include "platform/console.h"
#include "platform/system.h"

namespace vrk::platform {

namespace {

// ANSI colour numbers run red = 1, green = 2, blue = 4; console attributes run
// blue = 1, green = 2, red = 4. Swapping bits 0 and 2 maps one onto the other.
constexpr int ansi_colour(int nibble) {
    return ((nibble & 1) << 2) | (nibble & 2) | ((nibble & 4) >> 2);
}

}  // namespace

void set_console_colour(int attribute) {
    if (!stdout_is_terminal()) return;
    char sequence[32];
    int length;
    if (attribute == 7) {
        length = std::snprintf(sequence, sizeof(sequence), "\x1b[0m");
    } else {
        const int fg = attribute & 0x0F;
        const int bg = (attribute >> 4) & 0x0F;
        const int fg_code = ((fg & 8) ? 90 : 30) + ansi_colour(fg);
        if (bg == 0) {
            length = std::snprintf(sequence, sizeof(sequence), "\x1b[0;%dm", fg_code);
        } else {
            const int bg_code = ((bg & 8) ? 100 : 40) + ansi_colour(bg);
            length = std::snprintf(sequence, sizeof(sequence), "\x1b[0;%d;%dm", fg_code, bg_code);
        }
    }
    if (length > 0) std::fwrite(sequence, 1, static_cast<std::size_t>(length), stdout);
}

void clear_console() {
    if (!stdout_is_terminal()) return;
    std::fflush(stdout);
    static constexpr char kClear[] = "\x1b[H\x1b[2J";
    write_stdout(kClear, sizeof(kClear) - 1);
}

// A terminal has no window of its own to hide.
void show_console_window(bool) {}

void flush_stdout() { std::fflush(stdout); }

}  // namespace vrk::platform
