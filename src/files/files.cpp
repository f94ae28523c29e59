#include "files/files.h"

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
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

int writeAll(int fd, std::string_view text) {
    return writeAll(fd, std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
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

namespace {

constexpr size_t lineReadSize = 64 * 1024;

}  // namespace

LineReader::LineReader(int descriptor, size_t longestLine)
    : descriptor_(descriptor), longestLine_(longestLine) {}

bool LineReader::fill() {
    if (ended_) {
        return false;
    }
    if (start_ > 0) {
        buffer_.erase(0, start_);
        start_ = 0;
    }
    const size_t had = buffer_.size();
    buffer_.resize(had + lineReadSize);
    ssize_t got;
    do {
        got = ::read(descriptor_, buffer_.data() + had, lineReadSize);
    } while (got < 0 && errno == EINTR);
    buffer_.resize(had + static_cast<size_t>(std::max<ssize_t>(got, 0)));
    if (got <= 0) {
        ended_ = true;
        return false;
    }
    return true;
}

std::optional<LineReader::Line> LineReader::next() {
    Line line;
    size_t scanned = 0;  // bytes after start_ known to hold no LF
    for (;;) {
        const size_t newline = buffer_.find('\n', start_ + scanned);
        if (newline != std::string::npos) {
            if (!line.overlong) {
                const size_t length = newline - start_;
                line.overlong = length > longestLine_;
                line.text.assign(buffer_, start_, std::min(length, longestLine_));
            }
            start_ = newline + 1;
            return line;
        }
        // No LF yet: once the line is past the limit keep only its head and drop the rest as
        // it comes, so a huge line costs no more memory than the limit.
        if (buffer_.size() - start_ > longestLine_) {
            if (!line.overlong) {
                line.overlong = true;
                line.text.assign(buffer_, start_, longestLine_);
            }
            start_ = buffer_.size();
        }
        scanned = buffer_.size() - start_;
        if (!fill()) {
            const bool rest = buffer_.size() > start_;
            if (rest && !line.overlong) {
                line.text.assign(buffer_, start_);
            }
            start_ = buffer_.size();
            if (rest || line.overlong) {
                return line;
            }
            return std::nullopt;
        }
    }
}

}  // namespace murmela
