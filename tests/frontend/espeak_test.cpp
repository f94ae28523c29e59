// The espeak-ng context against the real library, real files and real links.

#include "frontend/espeak.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "common/voice_error.h"
#include "frontend/unicode.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryDirectory;

constexpr size_t suffixBytes = std::string_view("/espeak-ng-data/phondata-manifest").size();

std::string ipa(const Espeak& espeak, const std::string& text) {
    return encodeUtf8(espeak.phonemes(decodeUtf8(text)));
}

// Sets TMPDIR for one test, so the link lands in a directory the test owns.
class ScopedTemporaryDirectory {
public:
    explicit ScopedTemporaryDirectory(const fs::path& directory) {
        if (const char* old = std::getenv("TMPDIR")) {
            saved_ = old;
        }
        ::setenv("TMPDIR", directory.c_str(), 1);
    }
    ~ScopedTemporaryDirectory() {
        if (saved_.empty()) {
            ::unsetenv("TMPDIR");
        } else {
            ::setenv("TMPDIR", saved_.c_str(), 1);
        }
    }

private:
    std::string saved_;
};

// A voice directory (just espeak-ng's data) whose absolute path is exactly `bytes` long,
// padded with `filler` (possibly several bytes a character).
fs::path voiceDirectoryOfLength(const fs::path& base, size_t bytes, const std::string& filler) {
    std::string path = base.string() + "/";
    while (path.size() + filler.size() <= bytes) {
        path += filler;
    }
    while (path.size() < bytes) {
        path += "x";
    }
    fs::create_directories(path);
    fs::create_directory_symlink(testing::testVoiceDirectory() / "espeak-ng-data",
                                 fs::path(path) / "espeak-ng-data");
    EXPECT_EQ(path.size(), bytes);
    return path;
}

fs::path linkPath(const fs::path& temporary) {
    return temporary / ("murmela-" + std::to_string(::getpid()));
}

TEST(Espeak, PathOf149BytesIsUsedDirectlyAnd150IsLinked) {
    TemporaryDirectory links("m");
    TemporaryDirectory voices;
    ScopedTemporaryDirectory tmpdir(links.path());

    fs::path fits = voiceDirectoryOfLength(voices.path() / "a", 149 - suffixBytes, "v");
    EXPECT_EQ(Espeak::linkedPath(fits), fits.string());
    EXPECT_FALSE(fs::exists(fs::symlink_status(linkPath(links.path()))));

    fs::path tooLong = voiceDirectoryOfLength(voices.path() / "b", 150 - suffixBytes, "v");
    EXPECT_EQ(Espeak::linkedPath(tooLong), linkPath(links.path()).string());
    EXPECT_EQ(fs::read_symlink(linkPath(links.path())), tooLong);

    // The library really starts through the link.
    Espeak espeak(tooLong);
    EXPECT_EQ(ipa(espeak, "cat"), "kˈæt");
}

TEST(Espeak, PathLengthIsCountedInUtf8Bytes) {
    TemporaryDirectory links("m");
    TemporaryDirectory voices;
    ScopedTemporaryDirectory tmpdir(links.path());

    // 150 bytes with the suffix, but fewer characters: "é" is two bytes.
    fs::path accented = voiceDirectoryOfLength(voices.path() / "c", 150 - suffixBytes, "é");
    ASSERT_LT(decodeUtf8(accented.string()).size() + suffixBytes, 150u);
    EXPECT_EQ(Espeak::linkedPath(accented), linkPath(links.path()).string());
}

TEST(Espeak, StaleLinkIsReplacedAndCurrentLinkKept) {
    TemporaryDirectory links("m");
    TemporaryDirectory voices;
    ScopedTemporaryDirectory tmpdir(links.path());
    fs::path elsewhere = voices.path() / "elsewhere";
    fs::create_directories(elsewhere);
    fs::create_directory_symlink(elsewhere, linkPath(links.path()));

    fs::path voice = voiceDirectoryOfLength(voices.path() / "d", 160, "v");
    EXPECT_EQ(Espeak::linkedPath(voice), linkPath(links.path()).string());
    EXPECT_EQ(fs::read_symlink(linkPath(links.path())), voice);

    // A link that already points at the directory is kept as it is.
    auto before = fs::symlink_status(linkPath(links.path()));
    EXPECT_EQ(Espeak::linkedPath(voice), linkPath(links.path()).string());
    EXPECT_EQ(fs::read_symlink(linkPath(links.path())), voice);
    EXPECT_EQ(before.type(), fs::file_type::symlink);
}

TEST(Espeak, LinkFailuresAreReported) {
    TemporaryDirectory voices;
    fs::path voice = voiceDirectoryOfLength(voices.path() / "e", 160, "v");
    {
        // The file system's own error when the link can't be made.
        ScopedTemporaryDirectory tmpdir(voices.path() / "no" / "such" / "directory");
        EXPECT_THROW(Espeak::linkedPath(voice), fs::filesystem_error);
    }
    {
        // A temporary directory so deep that even the link is too long for espeak-ng.
        fs::path deep = voices.path() / std::string(130, 't');
        fs::create_directories(deep);
        ScopedTemporaryDirectory tmpdir(deep);
        try {
            Espeak::linkedPath(voice);
            FAIL() << "expected the path error";
        } catch (const VoiceError& error) {
            EXPECT_STREQ(error.what(), "voice: espeak-ng path unreadable");
        }
    }
}

TEST(Espeak, SameDirectoryIsInitialisedOnlyOnce) {
    TemporaryDirectory voice;
    fs::copy(testing::testVoiceDirectory() / "espeak-ng-data", voice / "espeak-ng-data",
             fs::copy_options::recursive);
    Espeak first(voice.path());
    EXPECT_EQ(ipa(first, "dog"), "dˈɑːɡ");

    // Were the library started again, it would now fail: its data is gone.
    fs::rename(voice / "espeak-ng-data", voice / "moved");
    Espeak second(voice.path());
    EXPECT_EQ(ipa(second, "dog"), "dˈɑːɡ");
}

TEST(Espeak, MissingDataIsDamagedAndAFailureCanBeRetried) {
    TemporaryDirectory voice;
    try {
        Espeak espeak(voice.path());
        FAIL() << "expected the data error";
    } catch (const VoiceError& error) {
        EXPECT_STREQ(error.what(), "voice: espeak-ng data unreadable");
    }
    // The failed attempt recorded nothing: once the data is there, the same path works.
    fs::copy(testing::testVoiceDirectory() / "espeak-ng-data", voice / "espeak-ng-data",
             fs::copy_options::recursive);
    Espeak espeak(voice.path());
    EXPECT_EQ(ipa(espeak, "sun"), "sˈʌn");
}

TEST(Espeak, ClausesAreJoinedByOneSpaceAndEmptyOnesDropped) {
    Espeak espeak(testing::testVoiceDirectory());
    EXPECT_EQ(ipa(espeak, ""), "");
    EXPECT_EQ(ipa(espeak, "   "), "");
    // Two sentences and a comma make three clauses: one space between each, none at the ends.
    EXPECT_EQ(ipa(espeak, "The cat sat. A dog, too."), "ðə kˈæt sˈæt ɐ dˈɑːɡ tˈuː");
    // Multi-letter phonemes carry the tie mark.
    EXPECT_EQ(ipa(espeak, "church"), "t^ʃˈɜːt^ʃ");
    std::string punctuationOnly = ipa(espeak, "?!;");
    EXPECT_EQ(punctuationOnly.find("  "), std::string::npos);
    EXPECT_NE(punctuationOnly.back(), ' ');
}

TEST(Espeak, ConcurrentCallersGetTheSameResultsAsOneAfterTheOther) {
    Espeak espeak(testing::testVoiceDirectory());
    const std::vector<std::string> texts = {
        "The quick brown fox jumps over the lazy dog.", "She sells sea shells, by the shore.",
        "One, two, three; four.", "How much wood would a woodchuck chuck?"};
    std::vector<std::string> expected;
    for (const std::string& text : texts) {
        expected.push_back(ipa(espeak, text));
    }
    std::vector<std::vector<std::string>> seen(4);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < seen.size(); ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 25; ++round) {
                seen[t].push_back(ipa(espeak, texts[(t + round) % texts.size()]));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (size_t t = 0; t < seen.size(); ++t) {
        for (size_t round = 0; round < seen[t].size(); ++round) {
            EXPECT_EQ(seen[t][round], expected[(t + round) % texts.size()]);
        }
    }
}

}  // namespace
}  // namespace murmela
