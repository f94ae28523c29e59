#pragma once
// Reading the interface's JSON resources (text table, design tokens, the voice's credit).

#include <QFont>
#include <QJsonObject>
#include <QString>
#include <filesystem>
#include <optional>
#include <utility>

#include "ui/text_table.h"
#include "ui/widgets.h"

namespace murmela::ui {

// The JSON object in `file`; nothing when the file cannot be read or does not hold an object,
// in which case one error line naming `what` and the reason is logged.
std::optional<QJsonObject> readJsonObject(const std::filesystem::path& file, const char* what);

// `name` inside the resource directory; nothing when that directory cannot be determined.
std::optional<std::filesystem::path> resourceFile(const char* name);

// What a voice says about itself in its voice.json (name, description, licence), for the
// About window.
struct VoiceCredit {
    // Each member is empty when the voice does not say.
    QString name;
    QString description;
    QString license;
    QString licenseLink;

    // The members "name", "description", "license" and "licenseLink" of the voice.json in
    // `voiceDirectory`; a member that is missing, not text or blank stays empty, and so does
    // every member when the file cannot be read.
    static VoiceCredit read(const std::filesystem::path& voiceDirectory);

    // The credit of the voice in the resource directory.
    static VoiceCredit installed();
};

// Sizes, spacings, type sizes and colours of every window, read from "murmela-tokens.json" of
// the resources. Numbers are device-independent pixels.
//
//   {"layout": {"windowWidth": 640, ...}, "space": {"sm": 8, ...}, "type": {"body": 14, ...},
//    "color": {"danger": {"light": "#c42b1c", "dark": "#ff6b5e"}, ...}}

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

// What every window reads its texts, sizes and colours from. The windows take it as an
// argument so that a test can give them tables of its own; the application passes the
// process-wide ones.

struct UiTables {
    TextTable texts;
    DesignTokens tokens;

    // Copies of the process-wide text table and tokens (both share their data).
    static UiTables application() { return {textTable(), designTokens()}; }

    QString text(const QString& key, const TextArguments& arguments = {}) const {
        return texts.text(key, arguments);
    }

    // The system font at the size of the "type" token `key`, optionally semibold.
    QFont font(const QString& key, bool semibold = false) const;
};

}  // namespace murmela::ui
