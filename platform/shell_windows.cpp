// Commands through the command processor on Windows.
#include <cstdio>
#include <cstdlib>

#include "platform/shell.h"

namespace vrk::platform {

int run_shell(const std::string& command) { return std::system(command.c_str()); }

bool capture_shell(const std::string& command, std::string& out) {
    FILE* pipe = ::_popen(command.c_str(), "r");
    if (!pipe) return false;
    // The output is collected in pieces of at most 128 bytes.
    char piece[128];
    std::size_t got;
    while ((got = std::fread(piece, 1, sizeof(piece), pipe)) > 0) out.append(piece, got);
    ::_pclose(pipe);
    return true;
}

}  // namespace vrk::platform
