// WAV files: the header byte for byte, the 16-bit conversion's clamp and rounding, float
// pass-through, sizes the header cannot hold, and the file written piece by piece, which must be
// the in-memory image and leave nothing behind when it is abandoned or cannot start.

#include "audio/wav.h"

#include <fcntl.h>

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <vector>

#include "audio/wav_stream.h"
#include "files/files.h"
#include "support/temporary_directory.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using testing::TemporaryDirectory;

uint32_t uint32At(const Bytes& bytes, size_t offset) {
    return static_cast<uint32_t>(bytes.at(offset)) |
           static_cast<uint32_t>(bytes.at(offset + 1)) << 8 |
           static_cast<uint32_t>(bytes.at(offset + 2)) << 16 |
           static_cast<uint32_t>(bytes.at(offset + 3)) << 24;
}

Bytes bytesOf(const fs::path& path) {
    const std::string text = readFile(path);
    return {text.begin(), text.end()};
}

size_t entriesIn(const TemporaryDirectory& directory) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(directory.path()), {}));
}

TEST(Wav, EmptyFilesAreTheExactHeaders) {
    const Bytes pcm = {
        'R',  'I',  'F', 'F', 36,   0,    0, 0, 'W', 'A', 'V', 'E',  // RIFF, size 36
        'f',  'm',  't', ' ', 16,   0,    0, 0, 1,   0,   1,   0,    // PCM, mono
        0xC0, 0x5D, 0,   0,   0x80, 0xBB, 0, 0, 2,   0,   16,  0,    // 24000 Hz, 48000 B/s
        'd',  'a',  't', 'a', 0,    0,    0, 0};
    EXPECT_EQ(encodeWav({}, false, 24000), pcm);

    const Bytes ieee = {
        'R',  'I',  'F', 'F', 50,   0,    0,    0, 'W', 'A', 'V', 'E',  // RIFF, size 50
        'f',  'm',  't', ' ', 18,   0,    0,    0, 3,   0,   1,   0,    // IEEE float, mono
        0xC0, 0x5D, 0,   0,   0x00, 0x77, 0x01, 0, 4,   0,   32,  0,
        0,    0,                                                      // 96000 B/s, no extension
        'f',  'a',  'c', 't', 4,    0,    0,    0, 0,   0,   0,   0,  // fact: 0 samples
        'd',  'a',  't', 'a', 0,    0,    0,    0};
    EXPECT_EQ(encodeWav({}, true, 24000), ieee);
}

TEST(Wav, SizesCountTheSamples) {
    const std::vector<float> second(24000, 0.25f);
    const Bytes pcm = encodeWav(second, false, 24000);
    EXPECT_EQ(pcm.size(), 48044u);
    EXPECT_EQ(uint32At(pcm, 4), 48036u);   // RIFF size
    EXPECT_EQ(uint32At(pcm, 40), 48000u);  // data size
    EXPECT_EQ(wavHeader(24000, false, 24000), Bytes(pcm.begin(), pcm.begin() + 44));

    const Bytes ieee = encodeWav(second, true, 24000);
    EXPECT_EQ(ieee.size(), 96058u);
    EXPECT_EQ(uint32At(ieee, 4), 96050u);
    EXPECT_EQ(uint32At(ieee, 46), 24000u);  // fact: sample count
    EXPECT_EQ(uint32At(ieee, 54), 96000u);
}

TEST(Wav, PcmClampsWithNanAsFullScaleAndRoundsHalfToEvenWhileFloatKeepsItsBits) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<float> samples = {1.0f,  -1.0f, 0.5f, 2.0f, -3.0f,  nan,
                                        -0.5f, inf,   -inf, 0.0f, -1e-9f, 0.7f};
    const Bytes data = wavSampleBytes(samples, false);
    // ±16383.5 (the only products halfway between two codes) round to the even ±16384, 0.7
    // (22936.9) to the nearest code; -32768 never appears. Little-endian.
    const std::vector<int16_t> expected = {32767,  -32767, 16384,  32767, -32767, 32767,
                                           -16384, 32767,  -32767, 0,     0,      22937};
    ASSERT_EQ(data.size(), expected.size() * 2);
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(static_cast<int16_t>(data[2 * i] | data[2 * i + 1] << 8), expected[i]) << i;
    }

    const std::vector<float> unclipped = {1.5f, std::bit_cast<float>(0x7FC01234u), -0.0f, -7.25f};
    const Bytes bits = wavSampleBytes(unclipped, true);
    ASSERT_EQ(bits.size(), 16u);
    for (size_t i = 0; i < unclipped.size(); ++i) {
        EXPECT_EQ(uint32At(bits, i * 4), std::bit_cast<uint32_t>(unclipped[i])) << "sample " << i;
    }
    const Bytes file = encodeWav(unclipped, true, 24000);
    EXPECT_EQ(Bytes(file.begin() + 58, file.end()), bits);
}

TEST(WavDeathTest, SizesThatDoNotFitTheHeaderStopTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The largest PCM file: RIFF size 4294967294.
    EXPECT_EQ(uint32At(wavHeader(2147483629, false, 24000), 4), 4294967294u);
    EXPECT_DEATH(wavHeader(2147483630, false, 24000), "RIFF size");
    EXPECT_DEATH(wavHeader(int64_t{1} << 31, false, 24000), "data size");
    EXPECT_DEATH(wavHeader(int64_t{1} << 62, true, 24000), "data size");
    EXPECT_DEATH(wavHeader(std::numeric_limits<int64_t>::max(), false, 24000), "overflows");
    EXPECT_DEATH(wavHeader(0, false, -1), "sample rate is negative");
    EXPECT_DEATH(wavHeader(0, false, int64_t{1} << 32), "sample rate");
    EXPECT_DEATH(wavHeader(0, false, int64_t{1} << 31), "byte rate");
    EXPECT_DEATH(wavHeader(0, true, int64_t{1} << 30), "byte rate");
}

TEST(WavStream, PiecesMakeTheSameFileAsTheWholeAndReplaceTheOldOneOnlyAtTheEnd) {
    TemporaryDirectory directory;
    const fs::path destination = directory / "speech.wav";
    testing::writeText(destination, "older");
    const std::vector<float> first = {0.25f, -1.5f, 0.5f}, second = {1.0f, -0.75f};
    for (bool isFloat : {false, true}) {
        const Bytes before = bytesOf(destination);
        WavFile file;
        openWavFile(file, destination, isFloat);
        appendToWavFile(file, first);
        appendToWavFile(file, {});
        appendToWavFile(file, second);
        EXPECT_EQ(bytesOf(destination), before);
        finishWavFile(file, 24000);
        EXPECT_EQ(file.fd, -1);
        std::vector<float> all = first;
        all.insert(all.end(), second.begin(), second.end());
        EXPECT_EQ(bytesOf(destination), encodeWav(all, isFloat, 24000));
        EXPECT_EQ(entriesIn(directory), 1u);  // the scratch file became the destination
    }
}

TEST(WavStream, AbandonedOrImpossibleWritesLeaveNothing) {
    TemporaryDirectory directory;
    const fs::path destination = directory / "speech.wav";
    testing::writeText(destination, "kept");
    int descriptor = -1;
    {
        WavFile file;
        openWavFile(file, destination, false);
        appendToWavFile(file, std::vector<float>(1000, 0.5f));
        descriptor = file.fd;
    }
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);  // closed
    EXPECT_EQ(testing::readText(destination), "kept");
    EXPECT_EQ(entriesIn(directory), 1u);

    for (const fs::path& impossible : {directory.path(), directory / "missing" / "a.wav"}) {
        WavFile file;
        EXPECT_THROW(openWavFile(file, impossible, false), fs::filesystem_error);
        EXPECT_EQ(file.fd, -1);
    }
    EXPECT_EQ(entriesIn(directory), 1u);
}

}  // namespace
}  // namespace murmela
