#include "files/write_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace murmela {
namespace {

[[noreturn]] void fail(const std::filesystem::path& path, int code) {
    throw std::filesystem::filesystem_error("cannot write", path,
                                            std::error_code(code, std::generic_category()));
}

}  // namespace

void writeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) {
        fail(path, errno);
    }
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            int code = errno;
            ::close(fd);
            fail(path, code);
        }
        bytes = bytes.subspan(static_cast<size_t>(written));
    }
    // A file system that reports a failed write only when the file is closed.
    if (::close(fd) != 0 && errno != EINTR) {
        fail(path, errno);
    }
}

}  // namespace murmela
