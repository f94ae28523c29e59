// Atomic file replacement: the new content arrives whole, and every failure (no directory, a
// read-only directory, a write that stops half way, a rename that is refused) leaves the old file
// as it was and no scratch file behind.

#include "files/files.h"

#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "support/temporary_directory.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryDirectory;
using testing::writeText;

std::vector<uint8_t> bytesOf(const std::string& text) {
    return std::vector<uint8_t>(text.begin(), text.end());
}

std::set<std::string> namesIn(const fs::path& directory) {
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

// The error code of the filesystem_error that the write throws, or a failed expectation.
std::error_code writeError(const fs::path& destination, const std::vector<uint8_t>& bytes) {
    try {
        writeFileAtomically(destination, bytes);
    } catch (const fs::filesystem_error& error) {
        EXPECT_EQ(error.path1(), destination);
        return error.code();
    }
    ADD_FAILURE() << "no error writing " << destination;
    return {};
}

TEST(AtomicWrite, ReplacesTheFileWholeWithOrdinaryPermissions) {
    TemporaryDirectory directory;
    const fs::path destination = directory / "speech.wav";
    const mode_t previousMask = ::umask(022);
    writeFileAtomically(destination, bytesOf("first"));
    ::umask(previousMask);
    EXPECT_EQ(readFile(destination), "first");
    // A scratch file made private must not leave the saved file private.
    EXPECT_EQ(fs::status(destination).permissions(),
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                  fs::perms::others_read);

    std::vector<uint8_t> large(3 << 20);
    for (size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<uint8_t>(i * 7);
    }
    writeFileAtomically(destination, large);
    EXPECT_TRUE(readFile(destination) == std::string(large.begin(), large.end()));

    writeFileAtomically(destination, {});
    EXPECT_EQ(readFile(destination), "");
    EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{"speech.wav"});
}

TEST(AtomicWrite, MissingOrUnusableParentIsAnErrorThatWritesNothing) {
    TemporaryDirectory directory;
    EXPECT_EQ(writeError(directory / "absent" / "speech.wav", bytesOf("x")),
              std::errc::no_such_file_or_directory);
    writeText(directory / "plain", "not a directory");
    EXPECT_EQ(writeError(directory / "plain" / "speech.wav", bytesOf("x")),
              std::errc::not_a_directory);
    EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{"plain"});
    EXPECT_EQ(readFile(directory / "plain"), "not a directory");
}

TEST(AtomicWrite, RefusedRenameLeavesTheDestinationAndNoScratchFile) {
    TemporaryDirectory directory;
    const fs::path destination = directory / "speech.wav";
    writeText(destination / "inside", "kept");
    EXPECT_EQ(writeError(destination, bytesOf("new")), std::errc::is_a_directory);
    EXPECT_EQ(readFile(destination / "inside"), "kept");
    EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{"speech.wav"});
}

// The kernel stops a write at the file size limit (as on a full disk), root or not.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &previous_);
        previousHandler_ = ::signal(SIGXFSZ, SIG_IGN);
        rlimit limit = previous_;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &previous_);
        ::signal(SIGXFSZ, previousHandler_);
    }

private:
    rlimit previous_{};
    sighandler_t previousHandler_{};
};

TEST(AtomicWrite, WriteStoppedHalfWayKeepsTheOldFile) {
    TemporaryDirectory directory;
    const fs::path destination = directory / "speech.wav";
    writeText(destination, "old content");
    std::error_code code;
    {
        FileSizeLimit limit(4096);
        code = writeError(destination, std::vector<uint8_t>(64 * 1024, 0x55));
    }
    EXPECT_EQ(code, std::errc::file_too_large);
    EXPECT_EQ(readFile(destination), "old content");
    EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{"speech.wav"});
}

// A directory nobody may write to. Permissions do not stop root, so as root it is a read-only
// file system mounted for the test.
class ReadOnlyDirectory {
public:
    explicit ReadOnlyDirectory(const fs::path& path) : path_(path) {
        fs::create_directory(path_);
        if (::geteuid() != 0) {
            return;
        }
        if (::mount("murmela-test", path_.c_str(), "tmpfs", 0, "size=64k") != 0) {
            unavailable_ = std::string("cannot mount a tmpfs: ") + std::strerror(errno);
            return;
        }
        mounted_ = true;
    }
    ~ReadOnlyDirectory() {
        if (mounted_) {
            ::umount(path_.c_str());
        } else {
            fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add);
        }
    }
    // Fills the directory while it is writable, then makes it read-only.
    void seal() {
        if (mounted_) {
            if (::mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
                unavailable_ = std::string("cannot remount read-only: ") + std::strerror(errno);
            }
        } else {
            fs::permissions(path_, fs::perms::owner_read | fs::perms::owner_exec);
        }
    }
    const std::string& unavailable() const { return unavailable_; }

private:
    fs::path path_;
    bool mounted_ = false;
    std::string unavailable_;
};

TEST(AtomicWrite, ReadOnlyDirectoryKeepsTheOldFile) {
    TemporaryDirectory directory;
    ReadOnlyDirectory sealed(directory / "sealed");
    if (!sealed.unavailable().empty()) {
        GTEST_SKIP() << sealed.unavailable();
    }
    const fs::path destination = directory / "sealed" / "speech.wav";
    writeText(destination, "old content");
    sealed.seal();
    if (!sealed.unavailable().empty()) {
        GTEST_SKIP() << sealed.unavailable();
    }
    const std::error_code code = writeError(destination, bytesOf("new content"));
    EXPECT_TRUE(code == std::errc::read_only_file_system || code == std::errc::permission_denied)
        << code.message();
    EXPECT_EQ(readFile(destination), "old content");
    EXPECT_EQ(namesIn(directory / "sealed"), std::set<std::string>{"speech.wav"});
}

}  // namespace
}  // namespace murmela
