#include "engine/programming_error.h"

#include <cstdlib>

#include "logging/log.h"

namespace murmela {

void programmingError(std::string_view message) {
    log::error("murmelaEngine", message);
    std::abort();
}

}  // namespace murmela
