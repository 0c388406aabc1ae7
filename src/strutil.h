// Small helpers on byte strings. Plain functions of their arguments, without locale, callable from
// any thread. Paths are byte strings; nothing here looks at the disk.

#pragma once

#include <string>
#include <string_view>

namespace su {

// Bytes A to Z become a to z; every other byte stays.
[[nodiscard]] std::string lower_ascii(std::string s);

// Exact byte comparison. An empty prefix or suffix matches.
[[nodiscard]] bool starts_with(std::string_view s, std::string_view prefix);
[[nodiscard]] bool ends_with(std::string_view s, std::string_view suffix);

// The last component: "/" gives "/", trailing slashes are ignored, a path without a slash gives
// itself, an empty path the empty string.
[[nodiscard]] std::string basename_of(std::string_view path);

// Everything before the last component: "/", the empty string and a path with no slash give the
// empty string, trailing slashes are ignored, a parent that is the root gives "/".
[[nodiscard]] std::string parent_of(std::string_view path);

// An empty side gives the other one. No second slash is put behind one that is there.
[[nodiscard]] std::string join_path(std::string_view a, std::string_view b);

// The text after the last point, lower-cased. Empty when there is no point, or when the point is
// the first or the last character.
[[nodiscard]] std::string extension_of(std::string_view name);

// At most max_bytes bytes, cut where a UTF-8 sequence begins.
[[nodiscard]] std::string truncate_utf8(std::string_view s, size_t max_bytes);

// Lead bytes and the number of continuation bytes are checked, nothing more: overlong forms and
// surrogates pass.
[[nodiscard]] bool is_valid_utf8(std::string_view s);

// A copy in which each byte that belongs to no well-formed sequence has become U+FFFD. Every file
// name reaches the screen through this function.
[[nodiscard]] std::string sanitize_utf8(std::string_view s);

// The text between marks that keep its direction, and the direction marks in it, to itself. To be
// painted only.
[[nodiscard]] std::string isolated(std::string_view s);

// Where the character before or behind a byte position begins; the ends of the text stay. Bytes of
// the form 10xxxxxx never begin one.
[[nodiscard]] size_t previous_character(std::string_view s, size_t at);
[[nodiscard]] size_t next_character(std::string_view s, size_t at);

}  // namespace su
