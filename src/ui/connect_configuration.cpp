#include "ui/connect_configuration.h"

#include <nlohmann/json.hpp>

#include "engine/resources.h"

namespace murmela::ui {

std::filesystem::path installationRoot() {
    // /proc/self/exe is always readable for the running process; "/usr" is where a package
    // would put the program, should that ever fail.
    std::optional<std::filesystem::path> bin = executableDirectory();
    return bin ? bin->parent_path() : std::filesystem::path("/usr");
}

std::filesystem::path helperPath(const std::filesystem::path& root) {
    return root / "libexec" / "murmela" / "murmela";
}

std::string connectConfiguration(const std::filesystem::path& helper) {
    std::string encoded;
    try {
        encoded = nlohmann::json(helper.string()).dump();
    } catch (const nlohmann::json::type_error&) {
        encoded = "\"\"";
    }
    return "{\n  \"mcpServers\": {\n    \"murmela\": {\n      \"command\": " + encoded +
           ",\n      \"args\": [\"mcp\"]\n    }\n  }\n}";
}

}  // namespace murmela::ui
