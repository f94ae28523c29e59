#pragma once
// The client configuration with which an AI assistant starts Murmela's command-line helper
// ("murmela mcp") as a Model Context Protocol server.

#include <filesystem>
#include <string>

namespace murmela::ui {

// Where the program is installed: the directory that holds bin/ and share/, i.e. the parent of
// the executable's directory.
std::filesystem::path installationRoot();

// The helper program inside an installation.
std::filesystem::path helperPath(const std::filesystem::path& root);

// The configuration text for the helper at `helper`: eight lines, no final line feed, the path
// as a JSON string with only what JSON requires escaped (slashes stay as they are). A path
// that is not UTF-8 cannot be written as JSON and gives the empty string "".
std::string connectConfiguration(const std::filesystem::path& helper);

}  // namespace murmela::ui
