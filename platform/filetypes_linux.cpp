// File-type registration on Linux: a per-user MIME package and two desktop
// entries in the XDG data folder.
//
// The registration on Windows sets eight registry values; here they become
// three files, one setting each:
//   mime/packages/vorkascript.xml          the .vrs and .vre extensions, the
//                                          content type and perceived type of
//                                          source files (text/plain, text)
//   applications/vorkascript.desktop       the source file type's name and
//                                          its open command (-s=%f)
//   applications/vorkascript-program.desktop  the compiled type's name and
//                                          its open command (-crun=%f)
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <pwd.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include "platform/filetypes.h"

extern char** environ;

namespace vrk::platform {

namespace {

constexpr const char* kSourceMimeType = "text/x-vorkascript";
constexpr const char* kProgramMimeType = "application/x-vorkascript-program";

// $XDG_DATA_HOME when set to an absolute path, else ~/.local/share.
std::string data_home() {
    const char* configured = std::getenv("XDG_DATA_HOME");
    if (configured && configured[0] == '/') return configured;
    const char* home = std::getenv("HOME");
    std::string base = home ? home : "";
    if (base.empty()) {
        if (const passwd* user = ::getpwuid(::getuid())) base = user->pw_dir ? user->pw_dir : "";
    }
    return base + "/.local/share";
}

// The executable as the first word of an Exec line: always in double quotes,
// with the characters that are special inside them escaped, then the
// backslashes doubled for the desktop file's own string escapes and "%"
// doubled so it is not taken for a field code.
std::string exec_program(const std::string& path) {
    std::string quoted = "\"";
    for (char c : path) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
        quoted += c;
    }
    quoted += '"';
    std::string out;
    for (char c : quoted) {
        if (c == '\\') out += '\\';
        if (c == '%') out += '%';
        out += c;
    }
    return out;
}

std::string mime_package() {
    return std::string(
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<mime-info xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\">\n"
               "  <mime-type type=\"") +
           kSourceMimeType +
           "\">\n"
           "    <comment>vorkascript</comment>\n"
           "    <sub-class-of type=\"text/plain\"/>\n"
           "    <generic-icon name=\"text-x-generic\"/>\n"
           "    <glob pattern=\"*.vrs\"/>\n"
           "  </mime-type>\n"
           "  <mime-type type=\"" +
           kProgramMimeType +
           "\">\n"
           "    <comment>VorkaExecutable</comment>\n"
           "    <glob pattern=\"*.vre\"/>\n"
           "  </mime-type>\n"
           "</mime-info>\n";
}

std::string desktop_entry(const std::string& name, const std::string& executablePath,
                          const char* option, const char* mimeType) {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=" +
           name +
           "\n"
           "Exec=" +
           exec_program(executablePath) + " " + option +
           "=%f\n"
           "MimeType=" +
           mimeType +
           ";\n"
           "Terminal=true\n"
           "NoDisplay=true\n";
}

// Runs a program found on PATH with one argument and waits for it; a program
// that is not installed is skipped.
void run_if_present(const char* program, const std::string& argument) {
    std::string arg = argument;
    char* argv[] = {const_cast<char*>(program), arg.data(), nullptr};
    pid_t pid = 0;
    if (::posix_spawnp(&pid, program, nullptr, nullptr, argv, environ) != 0) return;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
}

}  // namespace

std::vector<FileTypeSetting> file_type_settings(const std::string& executablePath) {
    const std::string home = data_home();
    return {
        {home + "/mime/packages/vorkascript.xml", mime_package()},
        {home + "/applications/vorkascript.desktop",
         desktop_entry("vorkascript", executablePath, "-s", kSourceMimeType)},
        {home + "/applications/vorkascript-program.desktop",
         desktop_entry("VorkaExecutable", executablePath, "-crun", kProgramMimeType)},
    };
}

SettingRead read_setting(const std::string& location) {
    SettingRead result;
    const int fd = ::open(location.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        result.error = errno;
        result.status = (errno == ENOENT || errno == ENOTDIR) ? SettingStatus::missing
                                                              : SettingStatus::failed;
        return result;
    }
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof(buffer));
        if (n > 0) {
            result.value.append(buffer, static_cast<std::size_t>(n));
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            result.error = errno;
            result.status = SettingStatus::failed;
            ::close(fd);
            return result;
        }
        break;
    }
    ::close(fd);
    result.status = SettingStatus::found;
    return result;
}

int create_setting_location(const std::string& location) {
    const std::filesystem::path folder = std::filesystem::path(location).parent_path();
    if (folder.empty()) return 0;
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    return error.value();
}

int write_setting(const std::string& location, const std::string& value) {
    const int fd = ::open(location.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return errno;
    std::size_t done = 0;
    while (done < value.size()) {
        const ssize_t n = ::write(fd, value.data() + done, value.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const int error = errno;
            ::close(fd);
            return error;
        }
        done += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0) return errno;
    return 0;
}

void announce_file_types_changed() {
    const std::string home = data_home();
    run_if_present("update-mime-database", home + "/mime");
    run_if_present("update-desktop-database", home + "/applications");
}

bool may_register_system_wide() { return true; }

}  // namespace vrk::platform
