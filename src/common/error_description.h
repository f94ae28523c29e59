#pragma once
// How any error caught with catch (...) is told to the user or the log.

#include <exception>
#include <string>

namespace murmela {

// What an error caught with catch (...) says: what() for a std::exception.
inline std::string errorDescription(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& caught) {
        return caught.what();
    } catch (...) {
        return "unknown error";
    }
}

}  // namespace murmela
