// Parsing and checking of the pixel limit.
#include "tools/pixel_limit.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace qeltool {

bool ParsePixelLimit(const std::string& text, long long* limit) {
    if (text.empty()) return false;
    for (char c : text)
        if (c < '0' || c > '9') return false;  // no sign, exponent, hex or spaces
    errno = 0;
    const long long value = std::strtoll(text.c_str(), nullptr, 10);
    if (errno != 0 || value < 1) return false;
    *limit = value;
    return true;
}

bool WithinPixelLimit(long long width, long long height, long long limit, const std::string& what,
                      std::string* error) {
    const std::string size = std::to_string(width) + "x" + std::to_string(height);
    // The module and the runtime take each side as an int.
    if (width > INT_MAX || height > INT_MAX) {
        *error = what + " " + size + " has a side above " + std::to_string(INT_MAX) + " pixels";
        return false;
    }
    if (width > 0 && height > 0 && width > limit / height) {
        *error = what + " " + size + " is above the pixel limit " + std::to_string(limit) + " (--max-pixels)";
        return false;
    }
    return true;
}

}  // namespace qeltool
