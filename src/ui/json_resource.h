#pragma once
// Reading the interface's JSON resources (text table, design tokens).

#include <QJsonObject>
#include <filesystem>
#include <optional>

namespace murmela::ui {

// The JSON object in `file`; nothing when the file cannot be read or does not hold an object,
// in which case one error line naming `what` and the reason is logged.
std::optional<QJsonObject> readJsonObject(const std::filesystem::path& file, const char* what);

// `name` inside the resource directory; nothing when that directory cannot be determined.
std::optional<std::filesystem::path> resourceFile(const char* name);

}  // namespace murmela::ui
