// Kokoro voice packs: zip archives of NumPy arrays (stored and deflated), folders of raw
// tables, and the damage either can have.

#include "engine/voice_pack.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "common/voice_error.h"
#include "files/files.h"
#include "support/neural_voices.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

// The stand-in tables: row r holds r / 1024, the voice's number / 1024, then 0.5.
void expectStandInTable(const StyleTable& table, int voiceNumber) {
    ASSERT_EQ(table.size(), styleRows * styleWidth);
    for (size_t row = 0; row < styleRows; ++row) {
        ASSERT_EQ(table[row * styleWidth], static_cast<float>(row) / 1024.0f) << row;
        ASSERT_EQ(table[row * styleWidth + 1], static_cast<float>(voiceNumber) / 1024.0f);
        ASSERT_EQ(table[row * styleWidth + 255], 0.5f);
    }
}

TEST(VoicePack, StoredDeflatedAndFolderPacksGiveTheSameTables) {
    const std::vector<std::string> voices = {"af_heart", "am_michael", "bf_emma"};
    const std::filesystem::path stored = testing::standIn("kokoro") / "voices-v1.0.bin";
    const std::filesystem::path deflated =
        testing::standIn("bad/kokoro-failing") / "voices-v1.0.bin";
    const std::filesystem::path folder = testing::standIn("kokoro-folder") / "voices";
    for (const auto& pack : {stored, deflated, folder}) {
        EXPECT_EQ(packVoices(pack), voices) << pack;
        for (size_t index = 0; index < voices.size(); ++index) {
            expectStandInTable(readStyleTable(pack, voices[index]), static_cast<int>(index) + 1);
        }
    }
    // The archive's members are the arrays as NumPy wrote them.
    const ZipArchive archive(readFile(deflated), "pack.npz");
    EXPECT_EQ(archive.names(),
              (std::vector<std::string>{"af_heart.npy", "am_michael.npy", "bf_emma.npy"}));
    expectStandInTable(parseStyleArray(archive.read("bf_emma.npy"), "bf_emma"), 3);
}

TEST(VoicePack, DamageIsNamedWithTheFileAndNeverReadPastTheBytes) {
    const std::string whole = readFile(testing::standIn("bad/kokoro-failing") / "voices-v1.0.bin");
    // Every cut of the archive is refused: most lose the member list, the others a member.
    for (size_t length : {size_t{0}, size_t{21}, whole.size() / 2, whole.size() - 1}) {
        EXPECT_EQ(testing::voiceErrorText([&] {
                      ZipArchive archive(whole.substr(0, length), "v.bin");
                      archive.read("af_heart.npy");
                  }),
                  "voice: v.bin: not a complete zip archive")
            << length;
    }
    // A member whose deflated data is damaged, found through an intact member list.
    std::string damaged = whole;
    for (size_t i = 200; i < 400; ++i) {
        damaged[i] = static_cast<char>(damaged[i] ^ 0x5A);
    }
    EXPECT_EQ(testing::voiceErrorText([&] { ZipArchive(damaged, "v.bin").read("af_heart.npy"); }),
              "voice: v.bin: member af_heart.npy is damaged");
    EXPECT_EQ(testing::voiceErrorText([&] { ZipArchive(whole, "v.bin").read("nobody.npy"); }),
              "voice: v.bin: has no member nobody.npy");
    EXPECT_EQ(testing::voiceErrorText(
                  [&] { readStyleTable(testing::standIn("kokoro") / "voices-v1.0.bin", "x"); }),
              "voice: voices-v1.0.bin has no voice x");

    // Arrays of another type or shape.
    const ZipArchive archive(whole, "v.bin");
    std::string array = archive.read("af_heart.npy");
    std::string doubles = array;
    doubles.replace(doubles.find("<f4"), 3, "<f8");
    EXPECT_EQ(testing::voiceErrorText([&] { parseStyleArray(doubles, "a"); }),
              "voice: a: not a 510 x 256 table of little-endian float32 values");
    EXPECT_EQ(
        testing::voiceErrorText([&] { parseStyleArray(array.substr(0, array.size() - 4), "a"); }),
        "voice: a: its table has 522236 bytes, not 522240");
    EXPECT_EQ(testing::voiceErrorText([&] { parseStyleArray("PK", "a"); }),
              "voice: a: not a NumPy array");

    // A folder's table of the wrong size.
    testing::TemporaryDirectory directory;
    testing::writeText(directory / "short.bin", std::string(1024, '\0'));
    EXPECT_EQ(
        testing::voiceErrorText([&] { readStyleTable(directory.path(), "short"); }),
        "voice: " + directory.path().filename().string() + "/short.bin has 1024 bytes, not 522240");
}

}  // namespace
}  // namespace murmela
