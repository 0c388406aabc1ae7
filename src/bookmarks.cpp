#include "bookmarks.h"

#include "config_file.h"
#include "logger.h"
#include "paths.h"
#include "strutil.h"

#include <algorithm>

namespace bookmarks {

namespace {

std::vector<Bookmark> g_list;
bool g_loaded = false;

std::string file_path() {
    return config_dir() + "/bookmarks.txt";
}

}  // namespace

std::vector<Bookmark> parse(const std::string& text) {
    std::vector<Bookmark> list;
    for (const std::string& line : config_file::lines(text)) {
        const size_t tab = line.find('\t');
        if (tab != std::string::npos)
            list.push_back({line.substr(0, tab), line.substr(tab + 1)});
    }
    return list;
}

void load() {
    if (g_loaded)
        return;
    g_loaded = true;
    g_list.clear();
    const std::string path = file_path();
    std::string text;
    if (!config_file::read(path, text))
        return;
    g_list = parse(text);
    Log::infof("bookmarks: %zu loaded from %s", g_list.size(), path.c_str());
}

void save() {
    load();  // a list that was never read must not replace the one on disk
    std::string text;
    for (const Bookmark& bookmark : g_list) {
        std::string name = bookmark.name;
        std::replace(name.begin(), name.end(), '\t', ' ');
        text += name + "\t" + bookmark.path + "\n";
    }
    // The old file stays; the next change tries again.
    (void)config_file::replace(file_path(), text);
}

const std::vector<Bookmark>& all() {
    load();
    return g_list;
}

bool contains(const std::string& path) {
    load();
    return std::any_of(g_list.begin(), g_list.end(),
                       [&path](const Bookmark& bookmark) { return bookmark.path == path; });
}

bool add(const std::string& path) {
    load();
    if (!su::starts_with(path, "/") || contains(path))
        return false;
    std::string name = su::basename_of(path);
    if (name.empty() || name == "/")
        name = path;
    g_list.push_back({name, path});
    save();
    Log::infof("bookmark added: %s", path.c_str());
    return true;
}

bool remove(const std::string& path) {
    load();
    // A copy: the caller's text may be that of an entry, which is about to move.
    const std::string gone = path;
    if (std::erase_if(g_list, [&gone](const Bookmark& b) { return b.path == gone; }) == 0)
        return false;
    save();
    Log::infof("bookmark removed: %s", gone.c_str());
    return true;
}

void restore(const std::vector<Bookmark>& list) {
    load();
    if (g_list == list)
        return;
    g_list = list;
    save();
}

}  // namespace bookmarks
