#include "stringUtils.h"

#include <cerrno>
#include <cstdlib>
#include <limits>

// The by-value parameters below are part of the exported signatures and stay so.
// NOLINTBEGIN(performance-unnecessary-value-param)

namespace stringUtils {

const char* WHITESPACE = " \n\r\t";

bool contains(std::string s, std::string part) {
    if (part.size() > s.size()) return false;
    return s.find(part) != std::string::npos;
}

bool equals(std::string a, std::string b) {
    return a == b;
}

int32_t parseInt(std::string s) {
    const char* begin = s.c_str();
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(begin, &end, 10);
    if (end == begin || errno == ERANGE || value < std::numeric_limits<int32_t>::min() ||
        value > std::numeric_limits<int32_t>::max()) {
        return 0;
    }
    return static_cast<int32_t>(value);
}

std::string valueOf(int32_t value) {
    return std::to_string(value);
}

std::string trimLeft(const std::string& s, const char* set) {
    const size_t first = s.find_first_not_of(set);
    return first == std::string::npos ? std::string() : s.substr(first);
}

std::string trimRight(const std::string& s, const char* set) {
    const size_t last = s.find_last_not_of(set);
    return last == std::string::npos ? std::string() : s.substr(0, last + 1);
}

std::string trim(const std::string& s, const char* set) {
    const std::string left = trimLeft(s, set);
    return trimRight(left, set);
}

std::vector<std::string> split(const std::string& s, std::string delimiters) {
    std::vector<std::string> pieces;
    size_t start = s.find_first_not_of(delimiters);
    while (start != std::string::npos) {
        const size_t end = s.find_first_of(delimiters, start);
        if (end == std::string::npos) {
            pieces.push_back(s.substr(start));
            break;
        }
        pieces.push_back(s.substr(start, end - start));
        start = s.find_first_not_of(delimiters, end);
    }
    return pieces;
}

}  // namespace stringUtils

// NOLINTEND(performance-unnecessary-value-param)
