// Whole-file writes: the in-place write lands exactly at its path, never through a link; the
// atomic replacement arrives whole or not at all. Failures carry the system's reason and the
// path, and leave no scratch file.

#include "files/files.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <cerrno>
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
using Write = void (*)(const fs::path&, std::span<const uint8_t>);
constexpr Write kWrites[] = {writeFile, writeFileAtomically};

std::vector<uint8_t> bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

std::set<std::string> namesIn(const fs::path& directory) {
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

// The error code of the filesystem_error that the write throws, or a failed expectation.
std::error_code writeError(Write write, const fs::path& path, const std::vector<uint8_t>& bytes) {
    try {
        write(path, bytes);
    } catch (const fs::filesystem_error& error) {
        EXPECT_EQ(error.path1(), path);
        return error.code();
    }
    ADD_FAILURE() << "no error writing " << path;
    return {};
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

TEST(WriteFiles, ReplaceTheWholeContentWithOrdinaryPermissions) {
    std::vector<uint8_t> large(3 << 20);
    for (size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<uint8_t>(i * 7);
    }
    for (Write write : kWrites) {
        SCOPED_TRACE(write == writeFile ? "in place" : "atomic");
        TemporaryDirectory directory;
        const fs::path destination = directory / "speech.wav";
        const mode_t previousMask = ::umask(022);
        write(destination, large);
        ::umask(previousMask);
        EXPECT_TRUE(readFile(destination) == std::string(large.begin(), large.end()));
        // A scratch file made private must not leave the saved file private.
        EXPECT_EQ(fs::status(destination).permissions(),
                  fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                      fs::perms::others_read);
        write(destination, bytesOf("new"));
        EXPECT_EQ(readFile(destination), "new");
        write(destination, {});
        EXPECT_EQ(readFile(destination), "");
        EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{"speech.wav"});
    }
}

TEST(WriteFiles, FailuresLeaveWhatWasThereAndNoScratchFile) {
    for (Write write : kWrites) {
        SCOPED_TRACE(write == writeFile ? "in place" : "atomic");
        TemporaryDirectory directory;
        writeText(directory / "plain", "not a directory");
        writeText(directory / "folder" / "inside", "kept");
        const std::pair<fs::path, std::errc> failures[] = {
            {directory / "absent" / "a.wav", std::errc::no_such_file_or_directory},
            {directory / "plain" / "a.wav", std::errc::not_a_directory},
            {directory / "folder", std::errc::is_a_directory},
        };
        for (const auto& [path, code] : failures) {
            EXPECT_EQ(writeError(write, path, bytesOf("x")), code) << path;
        }
        EXPECT_EQ(readFile(directory / "plain"), "not a directory");
        EXPECT_EQ(readFile(directory / "folder" / "inside"), "kept");

        // A write stopped half way, as on a full disk: the atomic one keeps the old file.
        writeText(directory / "speech.wav", "old content");
        {
            FileSizeLimit limit(4096);
            EXPECT_EQ(
                writeError(write, directory / "speech.wav", std::vector<uint8_t>(64 * 1024, 0x55)),
                std::errc::file_too_large);
        }
        if (write == writeFileAtomically) {
            EXPECT_EQ(readFile(directory / "speech.wav"), "old content");
        }
        EXPECT_EQ(namesIn(directory.path()),
                  (std::set<std::string>{"folder", "plain", "speech.wav"}));
    }

    // The in-place write refuses a link at its path and keeps the link's target.
    TemporaryDirectory directory;
    writeText(directory / "target", "keep");
    fs::create_symlink(directory / "target", directory / "link");
    EXPECT_EQ(writeError(writeFile, directory / "link", bytesOf("overwritten")).value(), ELOOP);
    EXPECT_EQ(readFile(directory / "target"), "keep");
}

}  // namespace
}  // namespace murmela
