#pragma once
// Where the companion may write: an assistant chooses the path of every file it saves, so the
// companion keeps it to the folders the client named as its roots, or, when the client names
// none, to the user's home outside hidden folders. Only WAV files are written, an existing file
// is replaced only when it already is a WAV file, no symbolic link is followed out of the
// allowed folders or at the file itself, and no folder is ever created.

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace murmela::companion {

// A path the companion will not write to; what() is the one line the client is told.
class SaveRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The local path a file: URI names ("file:///home/me", "file://localhost/home/me"), its
// percent-escapes decoded; nothing for another scheme, another host or a malformed escape.
std::optional<std::filesystem::path> fileUriPath(std::string_view uri);

// The paths of the file: URIs among the roots of a roots/list result; other entries are ignored.
std::vector<std::filesystem::path> rootPaths(const nlohmann::json& listResult);

class SaveLocation {
public:
    // Inside one of the client's roots (and nowhere when there are none).
    static SaveLocation insideRoots(std::vector<std::filesystem::path> roots);
    // Inside `home`, and not in a hidden folder of it.
    static SaveLocation insideHome(std::filesystem::path home);
    // Nowhere, because of `reason`, which completes "Nothing was saved: ".
    static SaveLocation nowhere(std::string reason);

    // The path to write for `requested`: its folder's real path joined with its name. Throws
    // SaveRefused when the companion may not write there.
    std::filesystem::path destination(const std::filesystem::path& requested) const;

    // What the limits are, for the tool's description.
    static const char* description();

private:
    SaveLocation(std::vector<std::filesystem::path> roots, bool hiddenRefused,
                 std::string nowhereReason);

    std::vector<std::filesystem::path> roots_;
    bool hiddenRefused_ = false;
    std::string nowhereReason_;  // set when nothing may be written
};

}  // namespace murmela::companion
