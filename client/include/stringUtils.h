/*
 * Text routines on byte strings, used by the wrapper layer to cut notification
 * texts into fields and exported for callers of the library.
 *
 * Every function is pure: it reads its arguments, allocates its result, keeps
 * no state and may be called from any thread at any time. A character-set
 * argument is a NUL-terminated text whose characters are the members of the
 * set; order and repetition do not matter, and NUL cannot be a member.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace stringUtils {

/**
 * The blank characters that trim() is usually given: blank, line feed,
 * carriage return and tab, in that order. Form feed and vertical tab are not
 * members. The pointer itself is writable; the characters it points to are not.
 */
extern const char* WHITESPACE;

/**
 * True when `part` occurs in `s` as a contiguous substring (byte-wise,
 * case-sensitive). An empty `part` is contained in every text; a `part` longer
 * than `s` never is.
 */
bool contains(std::string s, std::string part);

/** True when `a` and `b` have the same length and the same bytes (no trimming, case-sensitive). */
bool equals(std::string a, std::string b);

/**
 * Base-10 conversion: leading whitespace is skipped, an optional sign is
 * accepted, digits are read up to the first non-digit and the rest is ignored
 * ("12abc" gives 12, "0x10" gives 0). A text with no number at all, or one
 * whose value does not fit into int32, gives 0; nothing is logged or raised,
 * so 0 is both a valid result and the error value.
 */
int32_t parseInt(std::string s);

/** Decimal text of `value`: a leading minus sign when negative, no leading zeros or blanks. */
std::string valueOf(int32_t value);

/**
 * The suffix of `s` that starts at its first character not in `set`. Empty when
 * `s` is empty or made only of members of `set`; a copy of `s` when `set` is empty.
 */
std::string trimLeft(const std::string& s, const char* set);

/**
 * The prefix of `s` that ends with its last character not in `set`. Empty when
 * `s` is empty or made only of members of `set`; a copy of `s` when `set` is empty.
 */
std::string trimRight(const std::string& s, const char* set);

/** trimRight(trimLeft(s, set), set): `s` without members of `set` at either end. */
std::string trim(const std::string& s, const char* set);

/**
 * Cuts `s` at every character of the set `delimiters` (single characters, not
 * a multi-character separator: "a,b;c" split with ",;" gives "a", "b", "c").
 * Runs of delimiters count as one, leading and trailing delimiters are
 * dropped, and no piece is ever empty; pieces are not trimmed. A text with no
 * non-delimiter character gives an empty list; an empty delimiter set gives
 * the whole non-empty text as one piece.
 */
std::vector<std::string> split(const std::string& s, std::string delimiters);

}  // namespace stringUtils
