// The installed voices' list, their ids and places, installing without replacing, removing only
// what the user added, picking a voice by its id, and the command line of `murmela voices`.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/environment.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"
#include "voices/installed_voice.h"
#include "voices/voice_store.h"
#include "voices/voices_command.h"
#include "voices/voices_failure.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using murmela::testing::ScopedVariable;
using murmela::testing::TemporaryDirectory;
using murmela::testing::writeText;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

void writePiper(const fs::path& directory, const std::string& stem, const std::string& speakers) {
    writeText(directory / (stem + ".onnx"), "model");
    writeText(directory / (stem + ".onnx.json"),
              R"({"dataset": "d", "audio": {"sample_rate": 22050, "quality": "low"},
                  "language": {"code": "en_US"}, "speaker_id_map": )" +
                  speakers + "}");
}

// A store with a bundled voice, an empty user folder and a system folder under `root`.
VoiceStore storeIn(const TemporaryDirectory& root) {
    murmela::testing::copyTestVoice(root / "resources" / "Voice");
    return VoiceStore(VoiceLocations{root / "resources" / "Voice", root / "user", root / "system"});
}

std::vector<std::string> ids(const VoiceStore& store) {
    std::vector<std::string> found;
    for (const InstalledVoice& voice : store.list().voices) {
        found.push_back(voice.id);
    }
    return found;
}

template <typename Action>
VoicesFailure failureOf(Action action) {
    try {
        action();
    } catch (const VoicesFailure& failure) {
        return failure;
    }
    return VoicesFailure(VoicesFailure::Kind::badArguments, "no failure");
}

TEST(VoiceStore, ListsBundledUserAndSystemVoicesWithReadableIdsAndNamesTheUnreadable) {
    TemporaryDirectory root;
    const VoiceStore store = storeIn(root);
    writePiper(root / "user" / "en_US-lessac-medium", "en_US-lessac-medium", "{}");
    writePiper(root / "user" / "vctk", "en_GB-vctk-low", R"({"p1": 0, "p2": 1})");
    writePiper(root / "system" / "en_US-amy-low", "en_US-amy-low", "{}");
    // The same id in both: the user's copy is the one listed.
    writePiper(root / "system" / "en_US-lessac-medium", "en_US-lessac-medium", "{}");
    writePiper(root / "user" / "broken", "x", "{}");
    writeText(root / "user" / "broken" / "x.onnx.json", "[");
    writeText(root / "user" / ".staging-abc" / "voice.json", "{}");
    writeText(root / "user" / "loose-file.onnx", "model");

    const VoiceListing listing = store.list();
    std::map<std::string, VoicePlace> places;
    for (const InstalledVoice& voice : listing.voices) {
        places[voice.id] = voice.place;
    }
    EXPECT_THAT(ids(store), ElementsAre("murmela", "en_US-lessac-medium", "vctk/p1", "vctk/p2",
                                        "en_US-amy-low"));
    EXPECT_EQ(places["murmela"], VoicePlace::bundled);
    EXPECT_EQ(places["en_US-lessac-medium"], VoicePlace::user);
    EXPECT_EQ(places["en_US-amy-low"], VoicePlace::system);
    EXPECT_EQ(listing.voices[1].directory, root / "user" / "en_US-lessac-medium");
    EXPECT_EQ(listing.voices[1].sizeBytes, directorySize(root / "user" / "en_US-lessac-medium"));
    EXPECT_GT(listing.voices[0].sizeBytes, 100000u);  // the test voice's models and data
    ASSERT_EQ(listing.problems.size(), 1u);
    EXPECT_THAT(listing.problems[0], HasSubstr("broken"));
    EXPECT_THAT(listing.problems[0], HasSubstr("x.onnx.json unreadable"));

    // Folders that don't exist yet list only what there is.
    const VoiceStore empty(VoiceLocations{std::nullopt, root / "absent", root / "absent"});
    EXPECT_TRUE(empty.list().voices.empty());
}

TEST(VoiceStore, InstallMovesTheVoiceInWholeAndNeverReplacesOne) {
    TemporaryDirectory root;
    const VoiceStore store = storeIn(root);
    fs::path staging = store.createStaging();
    EXPECT_EQ(staging.parent_path(), root / "user");
    writePiper(staging / "v", "v", R"({"a": 0, "b": 1})");
    EXPECT_THAT(store.install(staging / "v", "v"), ElementsAre("v/a", "v/b"));
    EXPECT_TRUE(fs::exists(root / "user" / "v" / "v.onnx"));
    EXPECT_FALSE(fs::exists(staging / "v"));

    // A second voice of the same name is refused, and the first stays as it was.
    writePiper(staging / "v", "other", "{}");
    const VoicesFailure taken = failureOf([&] { store.install(staging / "v", "v"); });
    EXPECT_EQ(taken.kind(), VoicesFailure::Kind::refused);
    EXPECT_THAT(taken.what(), HasSubstr("v is installed already"));
    EXPECT_TRUE(fs::exists(root / "user" / "v" / "v.onnx"));
    EXPECT_FALSE(fs::exists(root / "user" / "v" / "other.onnx"));

    // Staging folders a killed program left behind go once they are an hour old; one that
    // another program may still be filling stays.
    writeText(root / "user" / ".staging-killed" / "v" / "v.onnx", "model");
    fs::last_write_time(root / "user" / ".staging-killed",
                        fs::file_time_type::clock::now() - std::chrono::hours(2));
    writeText(root / "user" / ".staging-busy" / "v.onnx", "model");
    const fs::path another = store.createStaging();
    EXPECT_FALSE(fs::exists(root / "user" / ".staging-killed"));
    EXPECT_TRUE(fs::exists(root / "user" / ".staging-busy" / "v.onnx"));
    EXPECT_TRUE(fs::exists(staging));
    EXPECT_TRUE(fs::is_empty(another));

    for (const std::string name : {"", ".hidden", "a/b", "murmela"}) {
        EXPECT_EQ(failureOf([&] { store.install(staging / "v", name); }).kind(),
                  VoicesFailure::Kind::refused)
            << name;
    }

    // A user folder that can't be made is a failure to write, not a crash.
    writeText(root / "file", "in the way");
    const VoiceStore blocked(VoiceLocations{std::nullopt, root / "file" / "voices", root.path()});
    EXPECT_EQ(failureOf([&] { blocked.createStaging(); }).kind(), VoicesFailure::Kind::cannotWrite);
    const VoiceStore homeless(VoiceLocations{std::nullopt, std::nullopt, root / "system"});
    EXPECT_THAT(failureOf([&] { homeless.createStaging(); }).what(), HasSubstr("HOME"));
}

TEST(VoiceStore, RemovesOnlyTheUsersVoicesAndPacksWhole) {
    TemporaryDirectory root;
    const VoiceStore store = storeIn(root);
    writePiper(root / "user" / "mine", "mine", "{}");
    writePiper(root / "user" / "pack", "pack", R"({"a": 0, "b": 1})");
    writePiper(root / "system" / "theirs", "theirs", "{}");

    auto kindOf = [&](const std::string& id) {
        return failureOf([&] { store.remove(id); }).kind();
    };
    EXPECT_EQ(kindOf("murmela"), VoicesFailure::Kind::refused);
    EXPECT_EQ(kindOf("theirs"), VoicesFailure::Kind::refused);
    EXPECT_EQ(kindOf("pack/a"), VoicesFailure::Kind::refused);
    EXPECT_EQ(kindOf("nobody"), VoicesFailure::Kind::notFound);
    EXPECT_THAT(failureOf([&] { store.remove("murmela"); }).what(), HasSubstr("bundled"));
    EXPECT_THAT(failureOf([&] { store.remove("pack/a"); }).what(),
                HasSubstr("murmela voices remove pack"));

    store.remove("mine");
    store.remove("pack");
    EXPECT_THAT(ids(store), ElementsAre("murmela", "theirs"));
    // Nothing of them is left behind, not even the folder they were moved to on the way out.
    std::vector<fs::path> left;
    for (const fs::directory_entry& entry : fs::directory_iterator(root / "user")) {
        left.push_back(entry.path());
    }
    EXPECT_TRUE(left.empty());
    EXPECT_TRUE(fs::exists(root / "resources" / "Voice" / "voice.json"));
}

TEST(VoiceStore, StandardLocationsFollowXdgDataHomeThenHomeAndTheResources) {
    TemporaryDirectory root;
    std::optional<ScopedVariable> data(std::in_place, "XDG_DATA_HOME", root / "data");
    EXPECT_EQ(VoiceLocations::standard().user, root / "data" / "murmela" / "voices");
    // A relative XDG_DATA_HOME is to be ignored, as the base directory rules say.
    data.emplace("XDG_DATA_HOME", "relative");
    std::optional<ScopedVariable> home(std::in_place, "HOME", root / "home");
    EXPECT_EQ(VoiceLocations::standard().user,
              root / "home" / ".local" / "share" / "murmela" / "voices");
    data.emplace("XDG_DATA_HOME", std::nullopt);
    home.emplace("HOME", std::nullopt);
    EXPECT_EQ(VoiceLocations::standard().user, std::nullopt);

    // The voices for all users are the resources' own, as the second bundled voice is: listed
    // as a system voice, which only the package manager removes.
    murmela::testing::copyTestVoice(root / "resources" / "voices" / "murmela-slt");
    const ScopedVariable resources("MURMELA_RESOURCES", root / "resources");
    data.emplace("XDG_DATA_HOME", root / "data");
    const VoiceStore store(VoiceLocations::standard());
    const VoiceListing listing = store.list();
    ASSERT_EQ(listing.voices.size(), 1u);  // no Voice/ among these resources
    EXPECT_EQ(listing.voices[0].id, "murmela-slt");
    EXPECT_EQ(listing.voices[0].place, VoicePlace::system);
    const VoicesFailure removal = failureOf([&] { store.remove("murmela-slt"); });
    EXPECT_EQ(removal.kind(), VoicesFailure::Kind::refused);
    EXPECT_THAT(removal.what(), HasSubstr("package manager"));
    EXPECT_TRUE(fs::exists(root / "resources" / "voices" / "murmela-slt" / "voice.json"));
}

TEST(VoiceStore, ACommandLinesVoiceIsAnExistingDirectoryElseAnInstalledId) {
    TemporaryDirectory root;
    const VoiceStore store = storeIn(root);
    writePiper(root / "system" / "theirs", "theirs", "{}");
    writePiper(root / "user" / "pack", "pack", R"({"a": 0, "b": 1})");

    EXPECT_EQ(chooseVoice("murmela", store), VoiceChoice(root / "resources" / "Voice"));
    EXPECT_EQ(chooseVoice("theirs", store), VoiceChoice(root / "system" / "theirs"));
    EXPECT_EQ(chooseVoice("pack/b", store), VoiceChoice(root / "user" / "pack", "b"));
    // A directory given by its path, with or without a name, is taken as it is.
    const std::string pack = (root / "user" / "pack").string();
    EXPECT_EQ(chooseVoice(pack + ":a", store), VoiceChoice(root / "user" / "pack", "a"));
    EXPECT_EQ(chooseVoice(pack, store), VoiceChoice(root / "user" / "pack"));

    // A folder of the working directory wins over the installed voice of the same name.
    const fs::path before = fs::current_path();
    fs::create_directories(root / "here" / "theirs");
    fs::current_path(root / "here");
    const VoiceChoice local = chooseVoice("theirs", store);
    fs::current_path(before);
    EXPECT_EQ(local, VoiceChoice("theirs"));

    const VoicesFailure unknown = failureOf([&] { chooseVoice("nobody", store); });
    EXPECT_EQ(unknown.kind(), VoicesFailure::Kind::notFound);
    EXPECT_THAT(unknown.what(), HasSubstr("nobody; installed: murmela, pack/a, pack/b, theirs"));
}

TEST(VoicesCommandLine, ReadsActionsAndOptionsAndRefusesWhatMakesNoSense) {
    EXPECT_EQ(parseVoicesOptions({}).action, VoicesOptions::Action::list);
    EXPECT_TRUE(parseVoicesOptions({"--json"}).json);
    EXPECT_TRUE(parseVoicesOptions({"list", "--json"}).json);

    const std::string sum(64, 'A');
    const VoicesOptions add = parseVoicesOptions(
        {"add", "--sha256", sum, "http://h/a.onnx", "--max-size", "3M", "--name", "n"});
    EXPECT_EQ(add.action, VoicesOptions::Action::add);
    EXPECT_THAT(add.sources, ElementsAre("http://h/a.onnx"));
    EXPECT_THAT(add.checksums, ElementsAre(std::string(64, 'a')));
    EXPECT_EQ(add.sizeLimit, 3u << 20);
    EXPECT_EQ(add.name, "n");
    EXPECT_THAT(parseVoicesOptions({"add", "--", "--odd-name.onnx"}).sources,
                ElementsAre("--odd-name.onnx"));
    EXPECT_EQ(parseVoicesOptions({"remove", "en_US-x"}).id, "en_US-x");
    EXPECT_EQ(parseVoicesOptions({"add", "--help"}).action, VoicesOptions::Action::help);

    const std::vector<std::vector<std::string>> wrong{
        {"frobnicate"},
        {"--sha256", sum},                     // only add takes it
        {"add"},                               // nothing to add
        {"add", "a.onnx", "--sha256"},         // no value
        {"add", "a.onnx", "--sha256", "abc"},  // too short
        {"add", "a.onnx", "--sha256", std::string(64, 'g')},
        {"add", "a.onnx", "b.onnx", "--sha256", sum},  // one of two
        {"add", "a.onnx", "--max-size", "big"},
        {"add", "a.onnx", "--max-size", "-1"},
        {"add", "a.onnx", "--max-size", "5T"},
        {"add", "a.onnx", "--max-size", "99999999999999999999G"},
        {"add", "a.onnx", "--json"},
        {"remove"},
        {"remove", "a", "b"},
        {"list", "extra"},
    };
    for (const std::vector<std::string>& arguments : wrong) {
        const VoicesFailure failure = failureOf([&] { parseVoicesOptions(arguments); });
        EXPECT_EQ(failure.kind(), VoicesFailure::Kind::badArguments) << arguments.back();
        EXPECT_THAT(failure.what(), HasSubstr("murmela voices --help")) << arguments.back();
        EXPECT_EQ(exitStatus(failure.kind()), voicesBadArguments);
    }
}

}  // namespace
}  // namespace murmela
