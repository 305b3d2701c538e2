// Linux implementation of platform/file_access.h.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/file_access.h"

namespace vrk::platform {

std::string unreadable_reason(const std::string& path) {
    if (path.empty()) return std::strerror(ENOENT);
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::strerror(errno);
    struct stat info {};
    std::string reason;
    if (::fstat(fd, &info) != 0) {
        reason = std::strerror(errno);
    } else if (S_ISDIR(info.st_mode)) {
        // A folder opens for reading here, but holds no text to read.
        reason = std::strerror(EISDIR);
    }
    ::close(fd);
    return reason;
}

}  // namespace vrk::platform
