#pragma once
// Where the application's resources (voice, texts, design tokens, licences) live.

#include <filesystem>
#include <optional>

namespace murmela {

// $MURMELA_RESOURCES when set and not empty, otherwise <directory of the
// executable>/../share/murmela. Nothing when neither can be determined. Whether the directory
// exists is not checked.
std::optional<std::filesystem::path> resourceDirectory();

// The directory of the running executable, when the system can tell.
std::optional<std::filesystem::path> executableDirectory();

}  // namespace murmela
