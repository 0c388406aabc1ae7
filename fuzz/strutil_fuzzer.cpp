// File names are bytes that anybody may have chosen; every one of them reaches the screen through
// these functions.

#include "strutil.h"

#include <cstdlib>
#include <string>

namespace {

// Unlike assert(), also in builds that define NDEBUG.
void require(bool holds) {
    if (!holds)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The first byte chooses where to cut; the rest is the name, without a NUL behind it.
    const size_t limit = size > 0 ? data[0] : 0;
    const std::string_view name(reinterpret_cast<const char*>(data) + (size > 0 ? 1 : 0),
                                size > 0 ? size - 1 : 0);

    const std::string clean = su::sanitize_utf8(name);
    require(su::is_valid_utf8(clean));
    require(su::sanitize_utf8(clean) == clean);
    require((clean == name) == su::is_valid_utf8(name));
    require(clean.size() >= name.size() && clean.size() <= name.size() * 3);

    const std::string cut = su::truncate_utf8(name, limit);
    require(cut.size() <= limit && name.starts_with(cut));
    if (su::is_valid_utf8(name))
        require(su::is_valid_utf8(cut) && (cut.size() == name.size() || cut.size() + 4 > limit));

    const std::string base = su::basename_of(name);
    require(base == "/" || base.find('/') == std::string::npos);
    require(su::parent_of(name).size() < name.size() || name.empty());
    require(su::extension_of(name).size() < name.size() || name.empty());
    return 0;
}
