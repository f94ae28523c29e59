// Settings come from the command line first, then from the right file.

#include "app/settings.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QDir>

#include "support/temporary_directory.h"

namespace murmela {
namespace {

class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override {
        QSettings::setPath(QSettings::IniFormat, QSettings::UserScope,
                           QString::fromStdString(config.path().string()));
        ::unsetenv("MURMELA_DEFAULTS_SUITE");
    }
    void TearDown() override { ::unsetenv("MURMELA_DEFAULTS_SUITE"); }

    testing::TemporaryDirectory config;
};

ArgumentDomain arguments(std::vector<const char*> words) {
    words.insert(words.begin(), "murmela");
    return ArgumentDomain::fromCommandLine(static_cast<int>(words.size()), words.data());
}

TEST(ArgumentDomain, TakesDashKeyValuePairsOnly) {
    ArgumentDomain domain = arguments({"-murmela.parity", "/tmp/out", "stray", "-murmela.lines",
                                       "-odd", "-speed", "1.25", "-speed", "0.8", "-dangling"});
    EXPECT_EQ(domain.value("murmela.parity"), "/tmp/out");
    EXPECT_EQ(domain.value("murmela.lines"), "-odd");  // the word after a key is its value
    EXPECT_EQ(domain.value("speed"), "0.8");           // the later pair wins
    EXPECT_EQ(domain.value("dangling"), std::nullopt);
    EXPECT_EQ(domain.value("stray"), std::nullopt);
    EXPECT_EQ(arguments({}).value("murmela.parity"), std::nullopt);
}

TEST_F(SettingsTest, TheSuiteKeepsItsOwnValuesAndTheStandardStoreIsUntouched) {
    ::setenv("MURMELA_DEFAULTS_SUITE", "murmela-tests", 1);
    SettingsStore suite = SettingsStore::forModel({});
    suite.setValue("speed", 1.25);
    EXPECT_TRUE(suite.fileName().endsWith("murmela/murmela-tests.ini"))
        << suite.fileName().toStdString();

    SettingsStore reopened = SettingsStore::forModel({});
    EXPECT_EQ(reopened.value("speed")->toDouble(), 1.25);
    EXPECT_EQ(SettingsStore::standard({}).value("speed"), std::nullopt);
}

TEST_F(SettingsTest, UnusableSuiteNamesFallBackToTheStandardStore) {
    for (const char* name : {"", "murmela", "..", "a/b"}) {
        ::setenv("MURMELA_DEFAULTS_SUITE", name, 1);
        EXPECT_EQ(SettingsStore::forModel({}).fileName(), SettingsStore::standard({}).fileName())
            << name;
    }
}

TEST_F(SettingsTest, TheCommandLineWinsOverTheFileAndIsNeverWritten) {
    SettingsStore file = SettingsStore::standard({});
    file.setValue("murmela.lines", "/from/file.json");
    SettingsStore store = SettingsStore::standard(arguments({"-murmela.lines", "/from/args.json"}));
    EXPECT_EQ(store.value("murmela.lines")->toString(), "/from/args.json");
    store.setValue("murmela.lines", "/written.json");
    EXPECT_EQ(store.value("murmela.lines")->toString(), "/from/args.json");
    EXPECT_EQ(SettingsStore::standard({}).value("murmela.lines")->toString(), "/written.json");
}

}  // namespace
}  // namespace murmela
