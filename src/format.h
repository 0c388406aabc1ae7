// Sizes, counts and durations as the user reads them, by the conventions of the language in effect,
// which is asked for anew on each call. Re-entrant.

#pragma once

#include <cstdint>
#include <string>

namespace fmt {

// A size: whole up to "KB", then with 2 decimals (bytes) or 1 (bytes_short). A negative size counts
// as 0.
[[nodiscard]] std::string bytes(int64_t size);
[[nodiscard]] std::string bytes_short(int64_t size);

// A whole number with group separators.
[[nodiscard]] std::string count(int64_t number);
// A number of files in words.
[[nodiscard]] std::string files(int64_t number);
// A duration with one decimal, always in seconds. The tenths never carry into the whole part.
[[nodiscard]] std::string seconds(double s);

// The nearest int: what a "%d" of a translated text may be given.
[[nodiscard]] int saturated(int64_t number);

}  // namespace fmt
