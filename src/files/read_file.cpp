#include "files/read_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace murmela {
namespace {

[[noreturn]] void fail(const std::filesystem::path& path, int code) {
    throw std::filesystem::filesystem_error("cannot read", path,
                                            std::error_code(code, std::generic_category()));
}

}  // namespace

std::string readFile(const std::filesystem::path& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        fail(path, errno);
    }
    std::string content;
    char buffer[1 << 16];
    for (;;) {
        ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            int code = errno;
            ::close(fd);
            fail(path, code);
        }
        if (got == 0) {
            break;
        }
        content.append(buffer, static_cast<size_t>(got));
    }
    ::close(fd);
    return content;
}

}  // namespace murmela
