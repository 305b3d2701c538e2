// Commands through /bin/sh on Linux.
#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>

#include "platform/shell.h"

namespace vrk::platform {

int run_shell(const std::string& command) {
    const int status = std::system(command.c_str());
    if (status == -1) return -1;
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    // Killed by a signal: the shell's convention of 128 + signal.
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return status;
}

bool capture_shell(const std::string& command, std::string& out) {
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return false;
    // The output is collected in pieces of at most 128 bytes.
    char piece[128];
    std::size_t got;
    while ((got = std::fread(piece, 1, sizeof(piece), pipe)) > 0) out.append(piece, got);
    ::pclose(pipe);
    return true;
}

}  // namespace vrk::platform
