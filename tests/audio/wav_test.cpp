// WAV images: header fields byte for byte, the 16-bit conversion's clamp, scale and rounding,
// float pass-through, size limits, and the scratch file of an abandoned writer.

#include "audio/wav.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <vector>

#include "support/temporary_directory.h"

namespace murmela {
namespace {

using Bytes = std::vector<uint8_t>;

uint32_t uint32At(const Bytes& bytes, size_t offset) {
    return static_cast<uint32_t>(bytes.at(offset)) |
           static_cast<uint32_t>(bytes.at(offset + 1)) << 8 |
           static_cast<uint32_t>(bytes.at(offset + 2)) << 16 |
           static_cast<uint32_t>(bytes.at(offset + 3)) << 24;
}

std::vector<int16_t> pcmCodes(const Bytes& data) {
    std::vector<int16_t> codes;
    for (size_t i = 0; i + 1 < data.size(); i += 2) {
        codes.push_back(static_cast<int16_t>(data[i] | data[i + 1] << 8));
    }
    return codes;
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

TEST(Wav, SizesOfOneSecondAtTwentyFourThousandHertz) {
    const std::vector<float> second(24000, 0.25f);
    const Bytes pcm = encodeWav(second, false, 24000);
    EXPECT_EQ(pcm.size(), 48044u);
    EXPECT_EQ(uint32At(pcm, 4), 48036u);   // RIFF size
    EXPECT_EQ(uint32At(pcm, 24), 24000u);  // sample rate
    EXPECT_EQ(uint32At(pcm, 28), 48000u);  // byte rate
    EXPECT_EQ(uint32At(pcm, 40), 48000u);  // data size

    const Bytes ieee = encodeWav(second, true, 24000);
    EXPECT_EQ(ieee.size(), 96058u);
    EXPECT_EQ(uint32At(ieee, 4), 96050u);
    EXPECT_EQ(uint32At(ieee, 28), 96000u);
    EXPECT_EQ(uint32At(ieee, 46), 24000u);  // fact: sample count
    EXPECT_EQ(uint32At(ieee, 54), 96000u);

    // The header alone is what the whole file starts with.
    const Bytes header = wavHeader(24000, false, 24000);
    EXPECT_EQ(header, Bytes(pcm.begin(), pcm.begin() + 44));
}

TEST(Wav, PcmClampsWithNanAsFullScaleAndRoundsHalfToEven) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<float> samples = {1.0f,  -1.0f, 0.5f, 2.0f, -3.0f,  nan,
                                        -0.5f, inf,   -inf, 0.0f, -1e-9f, 0.7f};
    const Bytes data = wavSampleBytes(samples, false);
    ASSERT_EQ(data.size(), samples.size() * 2);
    // ±16383.5 (the only products halfway between two codes) round to the even ±16384, 0.7
    // (22936.9) to the nearest code; -32768 never appears.
    const std::vector<int16_t> expected = {32767,  -32767, 16384,  32767, -32767, 32767,
                                           -16384, 32767,  -32767, 0,     0,      22937};
    EXPECT_EQ(pcmCodes(data), expected);
    // Little-endian: 32767 is FF 7F, -32767 is 01 80.
    EXPECT_EQ(data[0], 0xFF);
    EXPECT_EQ(data[1], 0x7F);
    EXPECT_EQ(data[2], 0x01);
    EXPECT_EQ(data[3], 0x80);
}

TEST(Wav, FloatSamplesKeepTheirBitsUnclipped) {
    const float payloadNan = std::bit_cast<float>(0x7FC01234u);
    const std::vector<float> samples = {1.5f, payloadNan, -0.0f, -7.25f};
    const Bytes data = wavSampleBytes(samples, true);
    ASSERT_EQ(data.size(), 16u);
    for (size_t i = 0; i < samples.size(); ++i) {
        EXPECT_EQ(uint32At(data, i * 4), std::bit_cast<uint32_t>(samples[i])) << "sample " << i;
    }
    EXPECT_EQ(data[0], 0x00);  // 1.5f is 0x3FC00000, lowest byte first
    EXPECT_EQ(data[3], 0x3F);

    Bytes file = encodeWav(samples, true, 24000);
    EXPECT_EQ(Bytes(file.begin() + 58, file.end()), data);
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

TEST(Wav, DroppingAnOpenWriterClosesItAndDeletesItsScratchFile) {
    testing::TemporaryDirectory directory;
    const std::filesystem::path scratch = directory / "speech.wav.part";
    int fd = ::open(scratch.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0);
    {
        WavFile file;
        file.url = directory / "speech.wav";
        file.temp = scratch;
        file.fd = fd;
        file.samples = 10;
    }
    EXPECT_FALSE(std::filesystem::exists(scratch));
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1);  // the descriptor was closed
    EXPECT_FALSE(std::filesystem::exists(directory / "speech.wav"));

    // A writer whose file is already closed leaves the file alone.
    testing::writeText(scratch, "kept");
    {
        WavFile file;
        file.temp = scratch;
    }
    EXPECT_TRUE(std::filesystem::exists(scratch));
}

}  // namespace
}  // namespace murmela
