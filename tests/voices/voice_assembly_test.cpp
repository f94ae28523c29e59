// A voice's files put together as the directory the catalog then reads, and the download
// helpers' names and checksums.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/temporary_directory.h"
#include "support/test_voice.h"
#include "voices/download.h"
#include "voices/voice_assembly.h"
#include "voices/voice_catalog.h"
#include "voices/voices_failure.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using murmela::testing::TemporaryDirectory;
using murmela::testing::writeText;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const char* description = R"({"dataset": "d", "audio": {"sample_rate": 22050}})";

std::vector<std::string> stylesOf(const fs::path& directory) {
    std::vector<std::string> styles;
    for (const VoiceDetails& voice : readVoiceDirectory(directory)) {
        styles.push_back(voice.style);
    }
    return styles;
}

VoicesFailure failureOf(const std::vector<SourceFile>& files, const fs::path& staging) {
    try {
        arrangeFiles(files, std::nullopt, staging);
    } catch (const VoicesFailure& failure) {
        return failure;
    }
    return VoicesFailure(VoicesFailure::Kind::badArguments, "no failure");
}

TEST(VoiceAssembly, PiperModelTakesItsDescriptionFromTheFilesOrFromBesideIt) {
    TemporaryDirectory root;
    writeText(root / "in" / "en_US-a-low.onnx", "model");
    writeText(root / "in" / "en_US-a-low.onnx.json", description);

    // From beside the model: copied, the originals stay.
    EXPECT_EQ(arrangeFiles({{root / "in" / "en_US-a-low.onnx", "en_US-a-low.onnx"}}, std::nullopt,
                           root / "one"),
              "en_US-a-low");
    EXPECT_EQ(readVoiceDirectory(root / "one" / "en_US-a-low").front().kind, VoiceKind::piper);
    EXPECT_TRUE(fs::exists(root / "in" / "en_US-a-low.onnx"));

    // Downloaded files are moved, under the names they were given, and the folder's name is
    // the one asked for.
    writeText(root / "partial" / "1-model", "model");
    writeText(root / "partial" / "2-description", description);
    EXPECT_EQ(arrangeFiles({{root / "partial" / "1-model", "v.onnx", true},
                            {root / "partial" / "2-description", "v.onnx.json", true}},
                           "chosen", root / "two"),
              "chosen");
    EXPECT_TRUE(fs::exists(root / "two" / "chosen" / "v.onnx.json"));
    EXPECT_FALSE(fs::exists(root / "partial" / "1-model"));

    // A downloaded model never takes a description from beside its partial file.
    writeText(root / "partial" / "3-model", "model");
    writeText(root / "partial" / "3-model.json", description);
    const VoicesFailure lonely =
        failureOf({{root / "partial" / "3-model", "w.onnx", true}}, root / "three");
    EXPECT_EQ(lonely.kind(), VoicesFailure::Kind::notAVoice);
    EXPECT_THAT(lonely.what(), HasSubstr("w.onnx.json is missing beside w.onnx"));
}

TEST(VoiceAssembly, KokoroModelWithPackOrStyleFilesBecomesOneVoicePerStyle) {
    TemporaryDirectory root;
    writeText(root / "in" / "model.onnx", "model");
    writeText(root / "in" / "af_heart.bin", std::string(1024, '\0'));
    writeText(root / "in" / "bm_lewis.bin", std::string(1024, '\0'));
    const std::string name = arrangeFiles({{root / "in" / "model.onnx", "model.onnx"},
                                           {root / "in" / "af_heart.bin", "af_heart.bin"},
                                           {root / "in" / "bm_lewis.bin", "bm_lewis.bin"}},
                                          std::nullopt, root / "staging");
    EXPECT_EQ(name, "kokoro");
    EXPECT_TRUE(fs::exists(root / "staging" / "kokoro" / "voices" / "af_heart.bin"));
    EXPECT_THAT(stylesOf(root / "staging" / "kokoro"), ElementsAre("af_heart", "bm_lewis"));

    // What is neither model nor pack, and two models, make no voice.
    writeText(root / "in" / "notes.txt", "hello");
    EXPECT_THAT(failureOf({{root / "in" / "model.onnx", "model.onnx"},
                           {root / "in" / "notes.txt", "notes.txt"}},
                          root / "x")
                    .what(),
                HasSubstr("notes.txt is not part of a voice"));
    EXPECT_THAT(failureOf({{root / "in" / "model.onnx", "a.onnx"},
                           {root / "in" / "model.onnx", "b.onnx"},
                           {root / "in" / "af_heart.bin", "af_heart.bin"}},
                          root / "y")
                    .what(),
                HasSubstr("one model (.onnx) with its voice pack"));
}

TEST(VoiceAssembly, FolderIsCheckedBeforeItIsCopied) {
    TemporaryDirectory root;
    murmela::testing::copyTestVoice(root / "tones");
    fs::create_directories(root / "staging");
    fs::create_directory_symlink(".", root / "tones" / "loop");
    EXPECT_EQ(arrangeFolder(root / "tones" / "", std::nullopt, root / "staging"), "tones");
    EXPECT_TRUE(fs::exists(root / "staging" / "tones" / "voice.json"));
    EXPECT_TRUE(fs::is_symlink(root / "staging" / "tones" / "loop"));

    writeText(root / "junk" / "big.dat", std::string(4096, 'x'));
    EXPECT_THAT([&] { arrangeFolder(root / "junk", std::nullopt, root / "staging"); },
                ::testing::Throws<VoicesFailure>(
                    ::testing::Property(&VoicesFailure::kind, VoicesFailure::Kind::notAVoice)));
    EXPECT_FALSE(fs::exists(root / "staging" / "junk"));
}

TEST(DownloadNames, FileNamesAndSuffixesKeepTheQueryAndRefuseWhatIsNoFileName) {
    EXPECT_EQ(urlFileName("https://h/a/en_US-x-low.onnx?download=true"), "en_US-x-low.onnx");
    EXPECT_EQ(urlFileName("http://h/voices/af%5Fheart.bin#top"), "af_heart.bin");
    EXPECT_EQ(urlFileName("http://h/"), "");
    EXPECT_EQ(urlFileName("http://h"), "");
    EXPECT_EQ(urlFileName("http://h/.."), "");
    EXPECT_EQ(urlFileName("http://h/%2e%2e"), "");
    EXPECT_EQ(urlFileName("http://h/a%2Fb"), "");
    EXPECT_EQ(urlFileName("http://h/a%00b"), "");
    EXPECT_EQ(urlFileName("http://h/cut%2"), "cut%2");
    EXPECT_EQ(urlWithSuffix("https://h/a.onnx?download=true", ".json"),
              "https://h/a.onnx.json?download=true");
    EXPECT_EQ(urlWithSuffix("https://h/a.onnx", ".json"), "https://h/a.onnx.json");
}

TEST(DownloadChecksum, Sha256OfKnownTextsAndAnUnreadableFile) {
    TemporaryDirectory root;
    writeText(root / "abc", "abc");
    EXPECT_EQ(sha256Hex(root / "abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    writeText(root / "empty", "");
    EXPECT_EQ(sha256Hex(root / "empty"),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_THROW(sha256Hex(root / "absent"), fs::filesystem_error);
    EXPECT_THROW(sha256Hex(root.path()), fs::filesystem_error);  // a directory
}

}  // namespace
}  // namespace murmela
