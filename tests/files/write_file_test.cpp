// The plain in-place write: the bytes land at the path itself, never through a link, and a
// failure is thrown with the system's reason.

#include "files/files.h"

#include <signal.h>
#include <sys/resource.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "support/temporary_directory.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using testing::readText;
using testing::TemporaryDirectory;
using testing::writeText;

std::vector<uint8_t> bytesOf(const std::string& text) {
    return std::vector<uint8_t>(text.begin(), text.end());
}

TEST(WriteFile, CreatesOrReplacesTheWholeContent) {
    TemporaryDirectory directory;
    const fs::path file = directory / "a.f32";
    writeFile(file, bytesOf("a longer old content"));
    EXPECT_EQ(readText(file), "a longer old content");
    writeFile(file, bytesOf("new"));
    EXPECT_EQ(readText(file), "new");
    writeFile(file, {});
    EXPECT_EQ(fs::file_size(file), 0u);
}

TEST(WriteFile, ALinkAtThePathIsRefusedAndItsTargetKept) {
    TemporaryDirectory directory;
    writeText(directory / "target", "keep");
    fs::create_symlink(directory / "target", directory / "link");
    try {
        writeFile(directory / "link", bytesOf("overwritten"));
        ADD_FAILURE() << "wrote through a link";
    } catch (const fs::filesystem_error& error) {
        EXPECT_EQ(error.code().value(), ELOOP);
        EXPECT_EQ(error.path1(), directory / "link");
    }
    EXPECT_EQ(readText(directory / "target"), "keep");
}

TEST(WriteFile, AMissingDirectoryOrAFullDiskIsThrown) {
    TemporaryDirectory directory;
    try {
        writeFile(directory / "absent" / "a.f32", bytesOf("x"));
        ADD_FAILURE() << "wrote into a missing directory";
    } catch (const fs::filesystem_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
    }

    // A file size limit stands in for a full disk: the write stops part way.
    rlimit previous{};
    ::getrlimit(RLIMIT_FSIZE, &previous);
    sighandler_t handler = ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = previous;
    limit.rlim_cur = 4;
    ::setrlimit(RLIMIT_FSIZE, &limit);
    bool thrown = false;
    try {
        writeFile(directory / "big", bytesOf("more than four bytes"));
    } catch (const fs::filesystem_error& error) {
        thrown = true;
        EXPECT_EQ(error.code().value(), EFBIG);
    }
    ::setrlimit(RLIMIT_FSIZE, &previous);
    ::signal(SIGXFSZ, handler);
    EXPECT_TRUE(thrown);
}

}  // namespace
}  // namespace murmela
