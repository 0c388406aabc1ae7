// Sizes, counts, durations and times as the user reads them, by the conventions of the language in
// effect, which is asked for anew on each call. Any thread.

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

// How long ago Unix time t was, in words; empty for 0, "just now" for the future.
[[nodiscard]] std::string relative(int64_t t);
// An age of that many seconds in words: minutes up to 45, hours up to 22, days up to 6, weeks up to
// 4, months up to 11 and then years, rounded to the nearest.
[[nodiscard]] std::string age(int64_t seconds);

// Unix time t as a local date in the language's format; empty for 0 and for what is no date.
[[nodiscard]] std::string date(int64_t t);
// The same with hours and minutes behind it. 0 is a time like any other here: whether it stands for
// "unknown", and what shows then, is the caller's matter.
[[nodiscard]] std::string date_time(int64_t t);
// The same with seconds as well.
[[nodiscard]] std::string date_time_seconds(int64_t t);
// Like date_time(), in a date format that the caller has looked up.
[[nodiscard]] std::string date_time(int64_t t, const char* date_format);

// A name, a path or a size as part of a sentence: isolated where its letters, or those around it,
// run from right to left, so that neither takes the other's direction.
[[nodiscard]] std::string embedded(const std::string& text);

// The nearest int: what a "%d" of a translated text may be given.
[[nodiscard]] int saturated(int64_t number);

}  // namespace fmt
