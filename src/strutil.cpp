#include "strutil.h"

namespace su {

namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

bool is_continuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// Length of the well-formed sequence at the start of s, 0 when there is none. s is not empty.
size_t sequence_length(std::string_view s) {
    const auto lead = static_cast<unsigned char>(s[0]);
    size_t length = 0;
    if (lead < 0x80)
        length = 1;
    else if ((lead & 0xE0) == 0xC0)
        length = 2;
    else if ((lead & 0xF0) == 0xE0)
        length = 3;
    else if ((lead & 0xF8) == 0xF0)
        length = 4;
    if (length == 0 || length > s.size())
        return 0;
    for (size_t i = 1; i < length; ++i) {
        if (!is_continuation(s[i]))
            return 0;
    }
    return length;
}

std::string_view without_trailing_slashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

}  // namespace

std::string lower_ascii(std::string s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return s;
}

bool starts_with(std::string_view s, std::string_view prefix) {
    return s.starts_with(prefix);
}

bool ends_with(std::string_view s, std::string_view suffix) {
    return s.ends_with(suffix);
}

std::string basename_of(std::string_view path) {
    path = without_trailing_slashes(path);
    if (path == "/")
        return "/";
    const size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string parent_of(std::string_view path) {
    path = without_trailing_slashes(path);
    if (path == "/")
        return {};
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return {};
    // "///a" lies in the root as "/a" does.
    if (path.find_first_not_of('/') > slash)
        return "/";
    return std::string(path.substr(0, slash));
}

std::string join_path(std::string_view a, std::string_view b) {
    if (a.empty())
        return std::string(b);
    if (b.empty())
        return std::string(a);
    std::string joined;
    joined.reserve(a.size() + 1 + b.size());
    joined.append(a);
    if (a.back() != '/')
        joined.push_back('/');
    joined.append(b);
    return joined;
}

std::string extension_of(std::string_view name) {
    const size_t point = name.rfind('.');
    if (point == std::string_view::npos || point == 0 || point + 1 == name.size())
        return {};
    return lower_ascii(std::string(name.substr(point + 1)));
}

std::string truncate_utf8(std::string_view s, size_t max_bytes) {
    if (s.size() <= max_bytes)
        return std::string(s);
    size_t cut = max_bytes;
    while (cut > 0 && is_continuation(s[cut]))
        --cut;
    return std::string(s.substr(0, cut));
}

bool is_valid_utf8(std::string_view s) {
    while (!s.empty()) {
        const size_t length = sequence_length(s);
        if (length == 0)
            return false;
        s.remove_prefix(length);
    }
    return true;
}

std::string sanitize_utf8(std::string_view s) {
    if (is_valid_utf8(s))
        return std::string(s);
    std::string clean;
    clean.reserve(s.size() + 8);
    while (!s.empty()) {
        const size_t length = sequence_length(s);
        if (length == 0) {
            clean.append(kReplacementCharacter);
            s.remove_prefix(1);
        } else {
            clean.append(s.substr(0, length));
            s.remove_prefix(length);
        }
    }
    return clean;
}

std::string isolated(std::string_view s) {
    constexpr std::string_view kFirstStrong = "\xe2\x81\xa8";
    constexpr std::string_view kEnd = "\xe2\x81\xa9";
    std::string result(kFirstStrong);
    size_t open = 0;
    for (size_t i = 0; i < s.size(); ++i) {
        const std::string_view mark = s.substr(i, 3);
        if (mark == kEnd) {
            // One that ends nothing of this text would end our own.
            i += 2;
            if (open == 0)
                continue;
            --open;
            result += mark;
            continue;
        }
        // The left-to-right, right-to-left and first-strong isolates.
        if (mark >= "\xe2\x81\xa6" && mark <= kFirstStrong)
            ++open;
        result += s[i];
    }
    for (++open; open > 0; --open)
        result += kEnd;
    return result;
}

size_t previous_character(std::string_view s, size_t at) {
    while (at > 0) {
        --at;
        if (!is_continuation(s[at]))
            break;
    }
    return at;
}

size_t next_character(std::string_view s, size_t at) {
    if (at < s.size())
        ++at;
    while (at < s.size() && is_continuation(s[at]))
        ++at;
    return at;
}

}  // namespace su
