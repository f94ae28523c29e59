#include "companion/save_location.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace murmela::companion {
namespace {

namespace fs = std::filesystem;

// A descriptor closed when it goes out of scope.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

std::string systemMessage(int code) {
    return std::generic_category().message(code);
}

int hexDigit(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - 'A' + 10;
    }
    return -1;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view start) {
    if (text.size() < start.size()) {
        return false;
    }
    for (size_t i = 0; i < start.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(text[i])) != start[i]) {
            return false;
        }
    }
    return true;
}

bool endsWithWav(const std::string& name) {
    return name.size() > 4 &&
           startsWithIgnoringCase(std::string_view(name).substr(name.size() - 4), ".wav");
}

// The real path of the directory open at `fd`, as the kernel knows it: no link in it can be
// swapped between finding the path and using the directory.
fs::path realPathOf(int fd) {
    std::error_code error;
    fs::path real = fs::read_symlink("/proc/self/fd/" + std::to_string(fd), error);
    if (error) {
        throw SaveRefused("cannot tell where the folder really is: " + error.message());
    }
    return real;
}

// `path` below `root` (both real paths), as the relative path from it; nothing when outside.
std::optional<fs::path> below(const fs::path& path, const fs::path& root) {
    const fs::path relative = path.lexically_relative(root);
    if (relative.empty() || *relative.begin() == "..") {
        return std::nullopt;
    }
    return relative;
}

// An existing file may be replaced only when it is a regular file that already starts like a
// WAV file, so an assistant's mistake cannot overwrite a document.
void checkReplaceable(int directory, const std::string& name, const fs::path& requested) {
    struct stat status {};
    if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) {
            return;
        }
        throw SaveRefused("cannot look at " + requested.string() + ": " + systemMessage(errno));
    }
    if (S_ISLNK(status.st_mode)) {
        throw SaveRefused(requested.string() + " is a symbolic link, which is never followed");
    }
    if (S_ISDIR(status.st_mode)) {
        throw SaveRefused(requested.string() + " is a folder; give the path of a file in it");
    }
    if (!S_ISREG(status.st_mode)) {
        throw SaveRefused(requested.string() + " is not a regular file");
    }
    Descriptor file(
        ::openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    char header[12] = {};
    const ssize_t got = file.get() < 0 ? -1 : ::pread(file.get(), header, sizeof header, 0);
    if (got != static_cast<ssize_t>(sizeof header) || std::memcmp(header, "RIFF", 4) != 0 ||
        std::memcmp(header + 8, "WAVE", 4) != 0) {
        throw SaveRefused(requested.string() +
                          " exists and is not a WAV file; only a WAV file is replaced");
    }
}

}  // namespace

std::optional<fs::path> fileUriPath(std::string_view uri) {
    if (!startsWithIgnoringCase(uri, "file://")) {
        return std::nullopt;
    }
    uri.remove_prefix(7);
    const size_t pathStart = uri.find('/');
    if (pathStart == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view host = uri.substr(0, pathStart);
    if (!host.empty() && host != "localhost") {
        return std::nullopt;
    }
    std::string_view encoded = uri.substr(pathStart);
    encoded = encoded.substr(0, encoded.find_first_of("?#"));
    std::string path;
    for (size_t i = 0; i < encoded.size(); ++i) {
        if (encoded[i] != '%') {
            path += encoded[i];
            continue;
        }
        const int high = i + 2 < encoded.size() ? hexDigit(encoded[i + 1]) : -1;
        const int low = high >= 0 ? hexDigit(encoded[i + 2]) : -1;
        if (low < 0 || (high == 0 && low == 0)) {
            return std::nullopt;
        }
        path += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return fs::path(path);
}

std::vector<fs::path> rootPaths(const nlohmann::json& listResult) {
    std::vector<fs::path> paths;
    const auto roots = listResult.find("roots");
    if (!listResult.is_object() || roots == listResult.end() || !roots->is_array()) {
        return paths;
    }
    for (const nlohmann::json& root : *roots) {
        const auto uri = root.is_object() ? root.find("uri") : root.end();
        if (uri != root.end() && uri->is_string()) {
            if (std::optional<fs::path> path = fileUriPath(uri->get<std::string>())) {
                paths.push_back(std::move(*path));
            }
        }
    }
    return paths;
}

SaveLocation::SaveLocation(std::vector<fs::path> roots, bool hiddenRefused,
                           std::string nowhereReason)
    : roots_(std::move(roots)),
      hiddenRefused_(hiddenRefused),
      nowhereReason_(std::move(nowhereReason)) {}

SaveLocation SaveLocation::insideRoots(std::vector<fs::path> roots) {
    if (roots.empty()) {
        return nowhere("the client has named no folders the companion may write to");
    }
    return SaveLocation(std::move(roots), false, {});
}

SaveLocation SaveLocation::insideHome(fs::path home) {
    if (home.empty() || !home.is_absolute()) {
        return nowhere("there is no home folder (HOME) to write to");
    }
    return SaveLocation({std::move(home)}, true, {});
}

SaveLocation SaveLocation::nowhere(std::string reason) {
    return SaveLocation({}, false, std::move(reason));
}

const char* SaveLocation::description() {
    return "The file is written only inside the folders this client names as its roots, or, "
           "when it names none, inside the user's home folder but not in a hidden folder (one "
           "whose name starts with a dot). The name must end in .wav; the folder must already "
           "exist (none is created); an existing file is replaced only when it is a WAV file; "
           "symbolic links are not followed to the file or out of those folders.";
}

fs::path SaveLocation::destination(const fs::path& requested) const {
    if (!nowhereReason_.empty()) {
        throw SaveRefused(nowhereReason_);
    }
    if (!requested.is_absolute()) {
        throw SaveRefused(requested.string() + " is not an absolute path");
    }
    for (const fs::path& part : requested.relative_path()) {
        if (part == ".." || part == ".") {
            throw SaveRefused(requested.string() + " has a . or .. in it; give the plain path");
        }
    }
    const std::string name = requested.filename().string();
    if (name.empty()) {
        throw SaveRefused(requested.string() + " names a folder; give the path of a file in it");
    }
    if (!endsWithWav(name)) {
        throw SaveRefused(requested.string() + " does not end in .wav; only WAV files are written");
    }
    const fs::path folder = requested.parent_path();
    Descriptor directory(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (directory.get() < 0) {
        const int code = errno;
        throw SaveRefused(code == ENOENT ? "the folder " + folder.string() +
                                               " does not exist; the companion creates no folders"
                                         : "cannot open the folder " + folder.string() + ": " +
                                               systemMessage(code));
    }
    const fs::path realFolder = realPathOf(directory.get());
    std::optional<fs::path> inside;
    for (const fs::path& root : roots_) {
        std::error_code error;
        const fs::path realRoot = fs::canonical(root, error);
        if (!error && (inside = below(realFolder, realRoot))) {
            break;
        }
    }
    if (!inside) {
        throw SaveRefused(requested.string() + (hiddenRefused_
                                                    ? " is outside your home folder"
                                                    : " is outside the folders the client allows"));
    }
    if (hiddenRefused_) {
        bool hidden = name.front() == '.';
        for (const fs::path& part : *inside) {
            hidden = hidden || (part != "." && part.string().front() == '.');
        }
        if (hidden) {
            throw SaveRefused(requested.string() + " is in a hidden folder or is a hidden file");
        }
    }
    checkReplaceable(directory.get(), name, requested);
    return realFolder / name;
}

}  // namespace murmela::companion
