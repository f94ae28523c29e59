// The speed a view assigns or the settings hold is brought into the voice's one range, onto its
// steps, and without floating-point residue in what is stored.

#include "app/settings.h"

#include <gtest/gtest.h>

#include <QString>
#include <QStringList>

#include <cmath>
#include <limits>

namespace murmela {
namespace {

TEST(NormalisedSpeed, ValuesAreClampedSteppedAndFreeOfResidue) {
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
    }
    for (int step = 15; step <= 30; ++step) {
        const double value = step / 20.0;
        EXPECT_EQ(normalisedSpeed(value), std::round(value * 100.0) / 100.0) << value;
        EXPECT_EQ(normalisedSpeed(normalisedSpeed(value)), normalisedSpeed(value));
    }
}

TEST(SpeedFromSetting, MissingOrNonNumericSettingsMeanNormalSpeed) {
    EXPECT_EQ(speedFromSetting(std::nullopt), 1.0);
    EXPECT_EQ(speedFromSetting(QVariant(QString("fast"))), 1.0);
    EXPECT_EQ(speedFromSetting(QVariant(QString())), 1.0);
    EXPECT_EQ(speedFromSetting(QVariant(QStringList{"1", "2"})), 1.0);
    EXPECT_EQ(speedFromSetting(QVariant(QString("nan"))), 1.0);
    // A settings file or the command line hands numbers over as text.
    EXPECT_EQ(speedFromSetting(QVariant(QString("1.25"))), 1.25);
    EXPECT_EQ(speedFromSetting(QVariant(QString("0.5"))), 0.75);
    EXPECT_EQ(speedFromSetting(QVariant(2.0)), 1.5);
    EXPECT_EQ(speedFromSetting(QVariant(1.03)), 1.05);
}

}  // namespace
}  // namespace murmela
