#include "app/milliseconds.h"

#include <cmath>
#include <string>

#include "logging/log.h"

namespace murmela {
namespace {

int64_t checked(double whole) {
    // -2^63 is a 64-bit integer, 2^63 is not.
    if (!std::isfinite(whole) || whole < -0x1p63 || whole >= 0x1p63) {
        programmingError("a time of " + std::to_string(whole) + " ms is out of range");
    }
    return static_cast<int64_t>(whole);
}

}  // namespace

double millisecondsBetween(std::chrono::steady_clock::time_point start,
                           std::chrono::steady_clock::time_point end) {
    return std::chrono::duration<double>(end - start).count() * 1000.0;
}

int64_t truncatedMilliseconds(double milliseconds) {
    return checked(std::trunc(milliseconds));
}

int64_t roundedMilliseconds(double milliseconds) {
    return checked(std::round(milliseconds));
}

}  // namespace murmela
