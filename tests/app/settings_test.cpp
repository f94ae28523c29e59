// Settings come from the command line first, then from the right file; the speed they hold is
// brought into the voice's range, onto its steps, without floating-point residue.

#include "app/settings.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QDir>
#include <QStringList>

#include <limits>

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

TEST(Speed, ValuesAreClampedSteppedAndFreeOfResidueAndUnusableSettingsMeanNormal) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    const struct {
        double given;
        double expected;
    } cases[] = {{0.5, 0.75},  {2.0, 1.5},   {nan, 1.0},    {infinity, 1.0}, {-infinity, 1.0},
                 {1.03, 1.05}, {1.02, 1.0},  {1.126, 1.15}, {0.8, 0.8},      {0.75, 0.75},
                 {1.5, 1.5},   {-3.0, 0.75}, {0.774, 0.75}, {1.15, 1.15},    {1.35, 1.35}};
    for (const auto& [given, expected] : cases) {
        // Exactly the decimal value: 0.8, not 0.8000000000000002.
        EXPECT_EQ(normalisedSpeed(given), expected) << given;
        EXPECT_EQ(normalisedSpeed(expected), expected) << expected;
    }

    EXPECT_EQ(speedFromSetting(std::nullopt), 1.0);
    for (const QVariant& unusable : {QVariant(QString("fast")), QVariant(QString()),
                                     QVariant(QStringList{"1", "2"}), QVariant(QString("nan"))}) {
        EXPECT_EQ(speedFromSetting(unusable), 1.0) << unusable.toString().toStdString();
    }
    // A settings file or the command line hands numbers over as text.
    EXPECT_EQ(speedFromSetting(QVariant(QString("1.25"))), 1.25);
    EXPECT_EQ(speedFromSetting(QVariant(QString("0.5"))), 0.75);
    EXPECT_EQ(speedFromSetting(QVariant(1.03)), 1.05);
}

}  // namespace
}  // namespace murmela
