// Where the companion may write: each rule on real files, links and folders in a scratch folder.

#include "companion/save_location.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/temporary_directory.h"

namespace murmela::companion {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using testing::TemporaryDirectory;
using testing::writeText;

const std::string wavStart = std::string("RIFF\x24\0\0\0WAVEfmt ", 16);

// The refusal's text for `path`, or "allowed" when it is not refused.
std::string refusal(const SaveLocation& location, const fs::path& path) {
    try {
        location.destination(path);
        return "allowed";
    } catch (const SaveRefused& refused) {
        return refused.what();
    }
}

TEST(FileUriPath, DecodesLocalFileUrisAndIgnoresEverythingElse) {
    EXPECT_EQ(fileUriPath("file:///home/me"), fs::path("/home/me"));
    EXPECT_EQ(fileUriPath("FILE:///"), fs::path("/"));
    EXPECT_EQ(fileUriPath("file://localhost/srv/my%20notes/%C3%A9t%c3%a9"),
              fs::path("/srv/my notes/\xC3\xA9t\xC3\xA9"));
    EXPECT_EQ(fileUriPath("file:///tmp/a%2Fb?query#part"), fs::path("/tmp/a/b"));
    // Another host, another scheme, a broken escape or an escaped NUL name no local path.
    for (const char* uri : {"file://server/share", "https://example.com/home", "file:", "file://",
                            "file:///tmp/%4", "file:///tmp/%zz", "file:///tmp/%00x"}) {
        EXPECT_EQ(fileUriPath(uri), std::nullopt) << uri;
    }

    const nlohmann::json listed = {{"roots",
                                    {{{"uri", "file:///home/me/Music"}, {"name", "Music"}},
                                     {{"uri", "https://example.com/"}},
                                     {{"name", "no uri"}},
                                     {{"uri", 7}},
                                     "not an object",
                                     {{"uri", "file:///srv/a%20b"}}}}};
    EXPECT_EQ(rootPaths(listed), (std::vector<fs::path>{"/home/me/Music", "/srv/a b"}));
    EXPECT_TRUE(rootPaths(nlohmann::json::object()).empty());
    EXPECT_TRUE(rootPaths({{"roots", "file:///"}}).empty());
    EXPECT_TRUE(rootPaths(nlohmann::json::array()).empty());
}

TEST(SaveLocation, WritesOnlyNewOrWavFilesInsideTheRoots) {
    TemporaryDirectory scratch;
    const fs::path root = scratch / "root";
    fs::create_directories(root / "sub" / ".hidden");
    fs::create_directories(scratch / "outside");
    writeText(root / "old.wav", wavStart);
    writeText(root / "notes.txt.wav", "my notes, not a WAV file");
    writeText(root / "short.wav", "RIFF");
    const fs::path realRoot = fs::canonical(root);
    const SaveLocation location = SaveLocation::insideRoots({root});

    // A new file, a WAV file to replace, a hidden folder (allowed when the client names the
    // root), the root's own folder: given as the folder's real path with the name.
    EXPECT_EQ(location.destination(root / "new.wav"), realRoot / "new.wav");
    EXPECT_EQ(location.destination(root / "old.wav"), realRoot / "old.wav");
    EXPECT_EQ(location.destination(root / "sub" / "upper.WAV"), realRoot / "sub" / "upper.WAV");
    EXPECT_EQ(refusal(location, root / "sub" / ".hidden" / "a.wav"), "allowed");

    EXPECT_EQ(refusal(location, root / "notes.txt.wav"),
              (root / "notes.txt.wav").string() +
                  " exists and is not a WAV file; only a WAV file is replaced");
    EXPECT_THAT(refusal(location, root / "short.wav"), HasSubstr("is not a WAV file"));
    EXPECT_EQ(refusal(location, root / "speech.mp3"),
              (root / "speech.mp3").string() + " does not end in .wav; only WAV files are written");
    EXPECT_THAT(refusal(location, root / ".wav"), HasSubstr("does not end in .wav"));
    EXPECT_THAT(refusal(location, root / "sub"), HasSubstr("does not end in .wav"));
    fs::create_directories(root / "folder.wav");
    EXPECT_THAT(refusal(location, root / "folder.wav"), HasSubstr("is a folder"));
    EXPECT_THAT(refusal(location, root / "sub/"), HasSubstr("names a folder"));
    EXPECT_EQ(refusal(location, root / "missing" / "a.wav"),
              "the folder " + (root / "missing").string() +
                  " does not exist; the companion creates no folders");
    EXPECT_THAT(refusal(location, root / "old.wav" / "a.wav"), HasSubstr("cannot open the folder"));
    EXPECT_THAT(refusal(location, scratch / "outside" / "a.wav"), HasSubstr("outside the folders"));
    EXPECT_THAT(refusal(location, scratch / "a.wav"), HasSubstr("outside the folders"));
    // Climbing out, even back in again, is not taken apart: the plain path is asked for.
    EXPECT_THAT(refusal(location, root / ".." / "outside" / "a.wav"), HasSubstr("has a . or .."));
    EXPECT_THAT(refusal(location, root / "sub" / ".." / "a.wav"), HasSubstr("has a . or .."));
    EXPECT_THAT(refusal(location, "relative.wav"), HasSubstr("not an absolute path"));
    // A root that is only a prefix of a name does not cover its neighbour.
    fs::create_directories(scratch / "root-other");
    EXPECT_THAT(refusal(location, scratch / "root-other" / "a.wav"),
                HasSubstr("outside the folders"));

    // Nothing was created or changed by looking.
    EXPECT_FALSE(fs::exists(root / "new.wav"));
    EXPECT_EQ(testing::readText(root / "notes.txt.wav"), "my notes, not a WAV file");

    // Several roots, one of them missing; "file:///" allows every folder.
    const SaveLocation two = SaveLocation::insideRoots({scratch / "gone", scratch / "outside"});
    EXPECT_EQ(refusal(two, scratch / "outside" / "a.wav"), "allowed");
    EXPECT_THAT(refusal(two, root / "a.wav"), HasSubstr("outside the folders"));
    const SaveLocation everywhere = SaveLocation::insideRoots({*fileUriPath("file:///")});
    EXPECT_EQ(refusal(everywhere, scratch / "outside" / "a.wav"), "allowed");
    EXPECT_THAT(refusal(everywhere, root / "notes.txt.wav"), HasSubstr("is not a WAV file"));

    // No roots at all: nowhere.
    EXPECT_EQ(refusal(SaveLocation::insideRoots({}), root / "new.wav"),
              "the client has named no folders the companion may write to");
    EXPECT_EQ(refusal(SaveLocation::nowhere("no answer"), root / "new.wav"), "no answer");
}

TEST(SaveLocation, FollowsNoLinkToTheFileOrOutOfTheRoots) {
    TemporaryDirectory scratch;
    const fs::path root = scratch / "root";
    fs::create_directories(root / "inner");
    fs::create_directories(scratch / "outside");
    writeText(scratch / "outside" / "victim.wav", wavStart);
    writeText(root / "inner" / "target.wav", wavStart);
    fs::create_directory_symlink(scratch / "outside", root / "escape");
    fs::create_directory_symlink(root / "inner", root / "shortcut");
    fs::create_symlink(scratch / "outside" / "victim.wav", root / "link.wav");
    fs::create_symlink(root / "inner" / "target.wav", root / "inside-link.wav");
    fs::create_symlink(scratch / "nothing-here.wav", root / "dangling.wav");
    const SaveLocation location = SaveLocation::insideRoots({root});

    // A link in the middle that leads out is refused; one that stays inside is followed, and
    // the real folder is where the file goes.
    EXPECT_THAT(refusal(location, root / "escape" / "victim.wav"),
                HasSubstr("outside the folders"));
    EXPECT_THAT(refusal(location, root / "escape" / "new.wav"), HasSubstr("outside the folders"));
    EXPECT_EQ(location.destination(root / "shortcut" / "new.wav"),
              fs::canonical(root / "inner") / "new.wav");
    // A link as the last component, wherever it points, and a dangling one.
    for (const char* name : {"link.wav", "inside-link.wav", "dangling.wav"}) {
        EXPECT_EQ(refusal(location, root / name),
                  (root / name).string() + " is a symbolic link, which is never followed")
            << name;
    }
    EXPECT_FALSE(fs::exists(scratch / "nothing-here.wav"));

    // A root that is itself a link counts as where it leads.
    fs::create_directory_symlink(root, scratch / "root-link");
    const SaveLocation throughLink = SaveLocation::insideRoots({scratch / "root-link"});
    EXPECT_EQ(refusal(throughLink, root / "new.wav"), "allowed");
    EXPECT_EQ(refusal(throughLink, scratch / "root-link" / "new.wav"), "allowed");
    EXPECT_THAT(refusal(throughLink, scratch / "outside" / "new.wav"), HasSubstr("outside"));
}

TEST(SaveLocation, WithoutRootsWritesInTheHomeOutsideHiddenFolders) {
    TemporaryDirectory scratch;
    const fs::path home = scratch / "home";
    fs::create_directories(home / "Music" / ".cache");
    fs::create_directories(home / ".config");
    fs::create_directories(scratch / "elsewhere");
    fs::create_directory_symlink(home / ".config", home / "settings");
    const SaveLocation location = SaveLocation::insideHome(home);

    EXPECT_EQ(refusal(location, home / "a.wav"), "allowed");
    EXPECT_EQ(refusal(location, home / "Music" / "a.wav"), "allowed");
    for (const fs::path& hidden : {home / ".config" / "a.wav", home / "Music" / ".cache" / "a.wav",
                                   home / ".a.wav", home / "settings" / "a.wav"}) {
        EXPECT_EQ(refusal(location, hidden),
                  hidden.string() + " is in a hidden folder or is a hidden file");
    }
    EXPECT_EQ(refusal(location, scratch / "elsewhere" / "a.wav"),
              (scratch / "elsewhere" / "a.wav").string() + " is outside your home folder");
    // A hidden folder above the home is none of its business.
    const fs::path hiddenHome = scratch / ".hidden-parent" / "home";
    fs::create_directories(hiddenHome);
    EXPECT_EQ(refusal(SaveLocation::insideHome(hiddenHome), hiddenHome / "a.wav"), "allowed");

    EXPECT_EQ(refusal(SaveLocation::insideHome(""), home / "a.wav"),
              "there is no home folder (HOME) to write to");
    EXPECT_EQ(refusal(SaveLocation::insideHome("relative"), home / "a.wav"),
              "there is no home folder (HOME) to write to");
}

}  // namespace
}  // namespace murmela::companion
