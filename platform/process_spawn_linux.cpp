// Child processes on Linux: pipe2, posix_spawn, FIONREAD and waitpid.
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "platform/process_spawn.h"

extern char** environ;

namespace vrk::platform {

namespace {

// The command line cut at blanks outside double quotes; the quotes go.
std::vector<std::string> split_command_line(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool quoted = false;
    bool started = false;
    for (const char c : line) {
        if (c == '"') {
            quoted = !quoted;
            started = true;
        } else if ((c == ' ' || c == '\t') && !quoted) {
            if (started) words.push_back(word);
            word.clear();
            started = false;
        } else {
            word += c;
            started = true;
        }
    }
    if (started) words.push_back(word);
    return words;
}

void close_fd(intptr_t& fd) {
    if (fd >= 0) ::close(static_cast<int>(fd));
    fd = -1;
}

// Waits for the child; `block` false only looks.
void collect(spawned_process& child, bool block) {
    if (child.process <= 0 || child.collected) return;
    int status = 0;
    pid_t got;
    do {
        got = ::waitpid(static_cast<pid_t>(child.process), &status, block ? 0 : WNOHANG);
    } while (got < 0 && errno == EINTR);
    if (got == static_cast<pid_t>(child.process) || (got < 0 && errno == ECHILD))
        child.collected = true;
}

}  // namespace

bool spawn_process(const std::string& program, const std::string* command_line,
                   spawned_process& child, std::string& failure) {
    int out_pipe[2];
    int in_pipe[2];
    if (::pipe2(out_pipe, O_CLOEXEC) != 0) {
        failure = "StdoutRd CreatePipe";
        return false;
    }
    if (::pipe2(in_pipe, O_CLOEXEC) != 0) {
        ::close(out_pipe[0]);
        ::close(out_pipe[1]);
        failure = "Stdin CreatePipe";
        return false;
    }
    std::vector<std::string> words;
    if (command_line) words = split_command_line(*command_line);
    if (words.empty()) words.push_back(program);
    std::vector<char*> argv;
    for (auto& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in_pipe[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out_pipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, out_pipe[1], 2);
    // The child starts with the usual signal dispositions, whatever the host
    // has chosen for itself.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t pid = 0;
    const int error = ::posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(),
                                    environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(in_pipe[0]);
    ::close(out_pipe[1]);
    if (error != 0) {
        ::close(in_pipe[1]);
        ::close(out_pipe[0]);
        failure = "create";
        return false;
    }
    child.process = pid;
    child.thread = 0;
    child.input = in_pipe[1];
    child.output = out_pipe[0];
    child.collected = false;
    return true;
}

bool process_write(spawned_process& child, const char* data, std::size_t size) {
    if (child.input < 0) return false;
    // A child that has closed its input would raise SIGPIPE, which ends a
    // process by default: the signal is held back on this thread while
    // writing, and a pending one is taken before it is let through again.
    sigset_t pipe_signal;
    sigset_t previous;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &previous);
    bool ok = true;
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = ::write(static_cast<int>(child.input), data + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = false;
            break;
        }
        done += static_cast<std::size_t>(n);
    }
    if (!ok && errno == EPIPE) {
        const timespec no_wait{0, 0};
        while (sigtimedwait(&pipe_signal, nullptr, &no_wait) < 0 && errno == EINTR) {}
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return ok;
}

int64_t process_available(spawned_process& child) {
    collect(child, false);
    if (child.output < 0) return -1;
    int count = 0;
    if (::ioctl(static_cast<int>(child.output), FIONREAD, &count) != 0) return -1;
    return count;
}

int64_t process_read(spawned_process& child, char* data, std::size_t size) {
    if (child.output < 0) return -1;
    ssize_t n;
    do {
        n = ::read(static_cast<int>(child.output), data, size);
    } while (n < 0 && errno == EINTR);
    return n;
}

void process_terminate(spawned_process& child) {
    close_fd(child.input);
    close_fd(child.output);
    if (child.process > 0 && !child.collected) {
        ::kill(static_cast<pid_t>(child.process), SIGKILL);
        collect(child, true);
    }
    child.process = 0;
    child.collected = false;
}

}  // namespace vrk::platform
