#pragma once
// Sizes, spacings, type sizes and colours of every window, read from "murmela-tokens.json" of
// the resources. Numbers are device-independent pixels.
//
//   {"layout": {"windowWidth": 640, ...}, "space": {"sm": 8, ...}, "type": {"body": 14, ...},
//    "color": {"danger": {"light": "#c42b1c", "dark": "#ff6b5e"}, ...}}

#include <QJsonObject>
#include <QString>
#include <filesystem>
#include <utility>

#include "ui/appearance_color.h"

namespace murmela::ui {

class DesignTokens {
public:
    // No tokens: every lookup gives its fallback.
    DesignTokens() = default;
    explicit DesignTokens(QJsonObject groups) : groups_(std::move(groups)) {}

    // The tokens in `file`; none when it is missing, unreadable or not a JSON object (one
    // error log line says why).
    static DesignTokens read(const std::filesystem::path& file);

    // Member `key` of the object `group` when it is a number, otherwise `fallback`.
    double number(const QString& group, const QString& key, double fallback) const;

    // The groups the windows use, with their fallbacks: "layout" 100, "space" 8, "type" 13.
    // Rounded to whole pixels, which is what widgets take.
    int layout(const QString& key) const {
        return pixels(number(QStringLiteral("layout"), key, 100));
    }
    int space(const QString& key) const { return pixels(number(QStringLiteral("space"), key, 8)); }
    int type(const QString& key) const { return pixels(number(QStringLiteral("type"), key, 13)); }

    // Member `name` of the group "color": {"light": hex, "dark": hex}, each six hexadecimal
    // digits with an optional leading '#'. Anything else (missing, wrong length, not hex, not a
    // text) gives the colour without a pair, which is the platform's label colour.
    AppearanceColor color(const QString& name) const;

private:
    static int pixels(double value);

    QJsonObject groups_;
};

// The application's tokens, read from the resource directory on first use and kept for the
// life of the process.
const DesignTokens& designTokens();

}  // namespace murmela::ui
