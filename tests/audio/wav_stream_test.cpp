// WAV files written piece by piece: the finished file is exactly the in-memory image of all
// the samples, an existing file is replaced only at the end, and a write that is abandoned or
// cannot start leaves nothing behind.

#include "audio/wav_stream.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "files/files.h"
#include "support/temporary_directory.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryDirectory;

std::vector<uint8_t> bytesOf(const fs::path& path) {
    const std::string text = readFile(path);
    return {text.begin(), text.end()};
}

TEST(WavStream, PiecesMakeTheSameFileAsTheWholeAndReplaceTheOldOneOnlyAtTheEnd) {
    TemporaryDirectory directory;
    const fs::path destination = directory / "speech.wav";
    testing::writeText(destination, "older");
    const std::vector<float> first = {0.25f, -1.5f, 0.5f}, second = {1.0f, -0.75f};
    for (bool isFloat : {false, true}) {
        const std::vector<uint8_t> before = bytesOf(destination);
        WavFile file;
        openWavFile(file, destination, isFloat);
        appendToWavFile(file, first);
        appendToWavFile(file, {});
        appendToWavFile(file, second);
        EXPECT_EQ(bytesOf(destination), before);
        finishWavFile(file, 24000);
        EXPECT_EQ(file.fd, -1);
        EXPECT_EQ(file.samples, 5);
        std::vector<float> all = first;
        all.insert(all.end(), second.begin(), second.end());
        EXPECT_EQ(bytesOf(destination), encodeWav(all, isFloat, 24000));
        EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), fs::directory_iterator()),
                  1);  // the scratch file became the destination
    }
}

TEST(WavStream, AbandonedOrImpossibleWritesLeaveNothing) {
    TemporaryDirectory directory;
    const fs::path destination = directory / "speech.wav";
    testing::writeText(destination, "kept");
    {
        WavFile file;
        openWavFile(file, destination, false);
        appendToWavFile(file, std::vector<float>(1000, 0.5f));
    }
    EXPECT_EQ(testing::readText(destination), "kept");
    EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), fs::directory_iterator()), 1);

    for (const fs::path& impossible : {directory.path(), directory / "missing" / "a.wav"}) {
        WavFile file;
        EXPECT_THROW(openWavFile(file, impossible, false), fs::filesystem_error);
        EXPECT_EQ(file.fd, -1);
    }
    EXPECT_TRUE(fs::is_directory(directory.path()));
}

}  // namespace
}  // namespace murmela
