#include "ui/ui_tables.h"

#include <QApplication>
#include <QByteArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QJsonValue>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <string>

#include "engine/voice_files.h"
#include "files/files.h"
#include "logging/log.h"

namespace murmela::ui {

std::optional<QJsonObject> readJsonObject(const std::filesystem::path& file, const char* what) {
    std::string content;
    try {
        content = readFile(file);
    } catch (const std::filesystem::filesystem_error& error) {
        log::error("murmelaUi", std::string(what) + ": " + error.what());
        return std::nullopt;
    }
    QJsonParseError parseError;
    QJsonDocument document =
        QJsonDocument::fromJson(QByteArray::fromStdString(content), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        log::error("murmelaUi", std::string(what) + ": " + file.string() + ": " +
                                    parseError.errorString().toStdString() + " at offset " +
                                    std::to_string(parseError.offset));
        return std::nullopt;
    }
    if (!document.isObject()) {
        log::error("murmelaUi", std::string(what) + ": " + file.string() + ": not a JSON object");
        return std::nullopt;
    }
    return document.object();
}

std::optional<std::filesystem::path> resourceFile(const char* name) {
    std::optional<std::filesystem::path> directory = resourceDirectory();
    if (!directory) {
        return std::nullopt;
    }
    return *directory / name;
}

namespace {

// Six hexadecimal digits after an optional '#': red, green, blue, high to low.
std::optional<QColor> parseHexColor(const QJsonValue& value) {
    if (!value.isString()) {
        return std::nullopt;
    }
    QString hex = value.toString();
    if (hex.startsWith(QLatin1Char('#'))) {
        hex.remove(0, 1);
    }
    if (hex.size() != 6) {
        return std::nullopt;
    }
    unsigned rgb = 0;
    for (QChar digit : hex) {
        int nibble = QStringLiteral("0123456789abcdef").indexOf(digit.toLower());
        if (nibble < 0) {
            return std::nullopt;
        }
        rgb = rgb * 16 + static_cast<unsigned>(nibble);
    }
    return QColor::fromRgb((rgb >> 16) & 0xff, (rgb >> 8) & 0xff, rgb & 0xff);
}

}  // namespace

DesignTokens DesignTokens::read(const std::filesystem::path& file) {
    std::optional<QJsonObject> object = readJsonObject(file, "design tokens");
    return object ? DesignTokens(std::move(*object)) : DesignTokens();
}

double DesignTokens::number(const QString& group, const QString& key, double fallback) const {
    QJsonValue value = groups_.value(group).toObject().value(key);
    return value.isDouble() ? value.toDouble() : fallback;
}

int DesignTokens::pixels(double value) {
    // JSON numbers can be anything; a widget size has to fit an int and be non-negative.
    if (!std::isfinite(value) || value < 0) {
        return 0;
    }
    return static_cast<int>(std::lround(std::min(value, 1e6)));
}

AppearanceColor DesignTokens::color(const QString& name) const {
    QJsonObject pair = groups_.value(QStringLiteral("color")).toObject().value(name).toObject();
    std::optional<QColor> light = parseHexColor(pair.value(QStringLiteral("light")));
    std::optional<QColor> dark = parseHexColor(pair.value(QStringLiteral("dark")));
    if (!light || !dark) {
        return {};
    }
    return AppearanceColor(*light, *dark);
}

const DesignTokens& designTokens() {
    static const DesignTokens tokens = [] {
        std::optional<std::filesystem::path> file = resourceFile("murmela-tokens.json");
        return file ? DesignTokens::read(*file) : DesignTokens();
    }();
    return tokens;
}

QFont UiTables::font(const QString& key, bool semibold) const {
    QFont font = QApplication::font();
    font.setPixelSize(std::max(1, tokens.type(key)));
    if (semibold) {
        font.setWeight(QFont::DemiBold);
    }
    return font;
}

VoiceCredit VoiceCredit::read(const std::filesystem::path& voiceDirectory) {
    VoiceDescription description;
    try {
        description = VoiceFiles(voiceDirectory).readDescription();
    } catch (const std::exception& error) {
        log::error("murmelaUi", std::string("voice credit: ") + error.what());
        return {};
    }
    auto member = [](const std::string& text) { return QString::fromStdString(text).trimmed(); };
    return {member(description.name), member(description.description), member(description.license),
            member(description.licenseLink)};
}

VoiceCredit VoiceCredit::installed() {
    std::optional<VoiceFiles> files = VoiceFiles::locate();
    return files ? read(files->directory()) : VoiceCredit();
}

}  // namespace murmela::ui
