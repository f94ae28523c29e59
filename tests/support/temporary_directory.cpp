#include "support/temporary_directory.h"

#include <stdlib.h>

#include <system_error>

#include "files/files.h"

namespace murmela::testing {

TemporaryDirectory::TemporaryDirectory(const std::string& prefix) {
    std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
    }
    path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    // Read-only subdirectories made by a test would stop the removal.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
        if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ignored);
        }
    }
    std::filesystem::remove_all(path_, ignored);
}

void writeText(const std::filesystem::path& path, const std::string& content) {
    std::filesystem::create_directories(path.parent_path());
    writeFile(path, {reinterpret_cast<const uint8_t*>(content.data()), content.size()});
}

std::string readText(const std::filesystem::path& path) {
    return readFile(path);
}

}  // namespace murmela::testing
