// Child processes on Windows: anonymous pipes, CreateProcess, PeekNamedPipe.
#include <vector>
#include <windows.h>

#include "platform/process_spawn.h"

namespace vrk::platform {

namespace {

HANDLE as_handle(intptr_t h) { return reinterpret_cast<HANDLE>(h); }
intptr_t from_handle(HANDLE h) { return reinterpret_cast<intptr_t>(h); }

void close_handle(intptr_t& h, intptr_t empty) {
    if (h != empty && h != 0) ::CloseHandle(as_handle(h));
    h = empty;
}

}  // namespace

bool spawn_process(const std::string& program, const std::string* command_line,
                   spawned_process& child, std::string& failure) {
    SECURITY_ATTRIBUTES inherit{};
    inherit.nLength = sizeof(inherit);
    inherit.bInheritHandle = TRUE;
    HANDLE out_read = nullptr;
    HANDLE out_write = nullptr;
    HANDLE in_read = nullptr;
    HANDLE in_write = nullptr;
    if (!::CreatePipe(&out_read, &out_write, &inherit, 0)) {
        failure = "StdoutRd CreatePipe";
        return false;
    }
    ::SetHandleInformation(out_read, HANDLE_FLAG_INHERIT, 0);
    if (!::CreatePipe(&in_read, &in_write, &inherit, 0)) {
        ::CloseHandle(out_read);
        ::CloseHandle(out_write);
        failure = "Stdin CreatePipe";
        return false;
    }
    ::SetHandleInformation(in_write, HANDLE_FLAG_INHERIT, 0);

    STARTUPINFOA startup{};
    startup.cb = sizeof(startup);
    startup.hStdError = out_write;
    startup.hStdOutput = out_write;
    startup.hStdInput = in_read;
    startup.dwFlags |= STARTF_USESTDHANDLES;
    PROCESS_INFORMATION info{};
    std::vector<char> line;
    if (command_line) line.assign(command_line->begin(), command_line->end());
    line.push_back(0);
    const BOOL started = ::CreateProcessA(program.c_str(), command_line ? line.data() : nullptr,
                                          nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                                          &info);
    ::CloseHandle(out_write);
    ::CloseHandle(in_read);
    if (!started) {
        ::CloseHandle(out_read);
        ::CloseHandle(in_write);
        failure = "create";
        return false;
    }
    child.process = from_handle(info.hProcess);
    child.thread = from_handle(info.hThread);
    child.input = from_handle(in_write);
    child.output = from_handle(out_read);
    child.collected = false;
    return true;
}

bool process_write(spawned_process& child, const char* data, std::size_t size) {
    if (child.input == -1) return false;
    std::size_t done = 0;
    while (done < size) {
        DWORD written = 0;
        const DWORD chunk = static_cast<DWORD>(size - done > 0x10000000 ? 0x10000000 : size - done);
        if (!::WriteFile(as_handle(child.input), data + done, chunk, &written, nullptr) ||
            written == 0)
            return false;
        done += written;
    }
    return true;
}

int64_t process_available(spawned_process& child) {
    if (child.output == -1) return -1;
    DWORD available = 0;
    if (!::PeekNamedPipe(as_handle(child.output), nullptr, 0, nullptr, &available, nullptr))
        return -1;
    return available;
}

int64_t process_read(spawned_process& child, char* data, std::size_t size) {
    if (child.output == -1) return -1;
    DWORD got = 0;
    const DWORD want = static_cast<DWORD>(size > 0x10000000 ? 0x10000000 : size);
    if (!::ReadFile(as_handle(child.output), data, want, &got, nullptr)) return -1;
    return got;
}

void process_terminate(spawned_process& child) {
    close_handle(child.input, -1);
    close_handle(child.output, -1);
    if (child.process) {
        ::TerminateProcess(as_handle(child.process), 0);
        ::WaitForSingleObject(as_handle(child.process), INFINITE);
    }
    close_handle(child.process, 0);
    close_handle(child.thread, 0);
    child.collected = false;
}

}  // namespace vrk::platform
