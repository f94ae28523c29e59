#include "ui/json_resource.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <filesystem>
#include <string>

#include "engine/resources.h"
#include "files/read_file.h"
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

}  // namespace murmela::ui
