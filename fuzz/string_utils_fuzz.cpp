// The string utilities over arbitrary texts and delimiter sets.
//
// Input: one byte giving the length of the delimiter set, the set, the text.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "stringUtils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const size_t setLength = std::min<size_t>(data[0] % 8, size - 1);
    const std::string set(reinterpret_cast<const char*>(data + 1), setLength);
    const std::string text(reinterpret_cast<const char*>(data + 1 + setLength),
                           size - 1 - setLength);

    // split gives the non-empty runs between delimiters, none holding one.
    for (const std::string& field : stringUtils::split(text, set)) {
        if (field.empty() || field.find_first_of(set) != std::string::npos) abort();
        if (!stringUtils::contains(text, field)) abort();
    }
    const std::string cset = set.c_str();  // the sets are C strings
    const std::string trimmed = stringUtils::trim(text, cset.c_str());
    if (trimmed.size() > text.size() || !stringUtils::contains(text, trimmed)) abort();
    if (stringUtils::trimLeft(text, cset.c_str()).size() < trimmed.size() ||
        stringUtils::trimRight(text, cset.c_str()).size() < trimmed.size()) {
        abort();
    }
    if (!stringUtils::equals(trimmed, trimmed) || stringUtils::equals(trimmed, trimmed + "x"))
        abort();
    const int32_t number = stringUtils::parseInt(text);
    if (stringUtils::parseInt(stringUtils::valueOf(number)) != number) abort();
    stringUtils::trim(text, stringUtils::WHITESPACE);
    return 0;
}
