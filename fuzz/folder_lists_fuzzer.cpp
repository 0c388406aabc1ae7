// bookmarks.txt and recent.txt as they may come. What is read of them can be written and read again
// without a change.

#include "bookmarks.h"
#include "recent.h"

#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>

namespace {

std::string written(const std::vector<bookmarks::Bookmark>& list) {
    std::string text;
    for (const bookmarks::Bookmark& bookmark : list)
        text += bookmark.name + "\t" + bookmark.path + "\n";
    return text;
}

std::string written(const std::vector<std::string>& list) {
    std::string text;
    for (const std::string& path : list)
        text += path + "\n";
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto marked = bookmarks::parse(text);
    if (bookmarks::parse(written(marked)) != marked)
        std::abort();
    const auto folders = recent::parse(text);
    if (folders.size() > 10 || recent::parse(written(folders)) != folders)
        std::abort();
    if (std::set<std::string>(folders.begin(), folders.end()).size() != folders.size())
        std::abort();
    for (const std::string& path : folders)
        if (path.empty() || path[0] != '/')
            std::abort();
    return 0;
}
