#include "engine/resources.h"

#include <cstdlib>
#include <system_error>

namespace murmela {

std::optional<std::filesystem::path> executableDirectory() {
    std::error_code error;
    std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error || executable.empty()) {
        return std::nullopt;
    }
    return executable.parent_path();
}

std::optional<std::filesystem::path> resourceDirectory() {
    const char* configured = std::getenv("MURMELA_RESOURCES");
    if (configured != nullptr && *configured != '\0') {
        return std::filesystem::path(configured);
    }
    std::optional<std::filesystem::path> bin = executableDirectory();
    if (!bin) {
        return std::nullopt;
    }
    return (*bin / ".." / "share" / "murmela").lexically_normal();
}

}  // namespace murmela
