#include "files/files.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <system_error>

namespace murmela {
namespace {

[[noreturn]] void failReading(const std::filesystem::path& path, int code) {
    throw std::filesystem::filesystem_error("cannot read", path,
                                            std::error_code(code, std::generic_category()));
}

[[noreturn]] void failWriting(const std::filesystem::path& path, int code) {
    throw std::filesystem::filesystem_error("cannot write", path,
                                            std::error_code(code, std::generic_category()));
}

}  // namespace

std::string readFile(const std::filesystem::path& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        failReading(path, errno);
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
            failReading(path, code);
        }
        if (got == 0) {
            break;
        }
        content.append(buffer, static_cast<size_t>(got));
    }
    ::close(fd);
    return content;
}

void writeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) {
        failWriting(path, errno);
    }
    if (int code = writeAll(fd, bytes); code != 0) {
        ::close(fd);
        failWriting(path, code);
    }
    // A file system that reports a failed write only when the file is closed.
    if (::close(fd) != 0 && errno != EINTR) {
        failWriting(path, errno);
    }
}

namespace {

// A hidden name beside the destination that no other writer uses.
std::filesystem::path scratchName(const std::filesystem::path& destination) {
    static thread_local std::mt19937_64 generator{std::random_device{}()};
    char suffix[24];
    std::snprintf(suffix, sizeof suffix, ".%016llx", static_cast<unsigned long long>(generator()));
    std::filesystem::path name = destination;
    name.replace_filename("." + destination.filename().string() + suffix);
    return name;
}

// Creates the scratch file; O_EXCL makes a name clash a retry instead of a shared file, and the
// mode lets the umask give the new file the permissions any new file would get.
int createScratch(const std::filesystem::path& destination, std::filesystem::path& scratch) {
    for (int attempt = 0; attempt < 16; ++attempt) {
        scratch = scratchName(destination);
        int fd = ::open(scratch.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0 || errno != EEXIST) {
            return fd;
        }
    }
    return -1;
}

}  // namespace

int writeAll(int fd, std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        bytes = bytes.subspan(static_cast<size_t>(written));
    }
    return 0;
}

namespace {

// Makes the rename itself durable. The new file is complete and in place by then, so a
// directory that cannot be flushed does not make the write a failure.
void flushDirectory(const std::filesystem::path& directory) {
    int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

}  // namespace

int createScratchFile(const std::filesystem::path& destination, std::filesystem::path& scratch) {
    if (!destination.has_filename()) {
        failWriting(destination, EISDIR);
    }
    // rename() would refuse a directory only after all the bytes had been written.
    std::error_code ignored;
    if (std::filesystem::is_directory(destination, ignored)) {
        failWriting(destination, EISDIR);
    }
    int fd = createScratch(destination, scratch);
    if (fd < 0) {
        failWriting(destination, errno);
    }
    return fd;
}

void replaceWithScratchFile(int fd, const std::filesystem::path& scratch,
                            const std::filesystem::path& destination) {
    int error = ::fsync(fd) != 0 ? errno : 0;
    // close reports late write errors of some file systems (NFS).
    if (::close(fd) != 0 && error == 0) {
        error = errno;
    }
    if (error == 0 && ::rename(scratch.c_str(), destination.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        ::unlink(scratch.c_str());
        failWriting(destination, error);
    }
    std::filesystem::path directory = destination.parent_path();
    flushDirectory(directory.empty() ? std::filesystem::path(".") : directory);
}

void writeFileAtomically(const std::filesystem::path& destination, std::span<const uint8_t> bytes) {
    std::filesystem::path scratch;
    int fd = createScratchFile(destination, scratch);
    if (int error = writeAll(fd, bytes); error != 0) {
        ::close(fd);
        ::unlink(scratch.c_str());
        failWriting(destination, error);
    }
    replaceWithScratchFile(fd, scratch, destination);
}

std::optional<std::filesystem::path> executableDirectory() {
    std::error_code error;
    std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error || executable.empty()) {
        return std::nullopt;
    }
    return executable.parent_path();
}

std::optional<std::filesystem::path> resourceDirectory() {
    const char* configured = std::getenv("MURMELA_RESOURCES");
    if (configured != nullptr && *configured != '\0') {
        return std::filesystem::path(configured);
    }
    std::optional<std::filesystem::path> programs = executableDirectory();
    if (!programs) {
        return std::nullopt;
    }
    const std::filesystem::path beside =
        (*programs / ".." / "share" / "murmela").lexically_normal();
    const std::filesystem::path above =
        (*programs / ".." / ".." / "share" / "murmela").lexically_normal();
    std::error_code ignored;
    if (!std::filesystem::is_directory(beside, ignored) &&
        std::filesystem::is_directory(above, ignored)) {
        return above;
    }
    return beside;
}

}  // namespace murmela
