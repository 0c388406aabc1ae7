#include "recent.h"

#include "config_file.h"
#include "fs_ops.h"
#include "logger.h"
#include "paths.h"
#include "strutil.h"

#include <algorithm>
#include <iterator>

namespace recent {

namespace {

constexpr size_t kMost = 10;

std::vector<std::string> g_list;
bool g_loaded = false;

std::string file_path() {
    return config_dir() + "/recent.txt";
}

}  // namespace

std::vector<std::string> parse(const std::string& text) {
    std::vector<std::string> list;
    for (const std::string& line : config_file::lines(text)) {
        if (list.size() >= kMost)
            break;
        if (su::starts_with(line, "/") && std::find(list.begin(), list.end(), line) == list.end())
            list.push_back(line);
    }
    return list;
}

void load() {
    if (g_loaded)
        return;
    g_loaded = true;
    std::string text;
    if (config_file::read(file_path(), text))
        g_list = parse(text);
}

void save() {
    load();  // a list that was never read must not replace the one on disk
    std::string text;
    for (const std::string& path : g_list)
        text += path + "\n";
    const std::string path = file_path();
    if (!config_file::overwrite(path, text))
        Log::warnf("recent: cannot write %s", path.c_str());
}

std::vector<std::string> all() {
    load();
    std::vector<std::string> present;
    std::copy_if(g_list.begin(), g_list.end(), std::back_inserter(present),
                 [](const std::string& path) { return fsops::stat_path(path).is_dir; });
    return present;
}

void add(const std::string& path) {
    if (!su::starts_with(path, "/"))
        return;
    load();
    if (!g_list.empty() && g_list.front() == path)
        return;
    std::erase(g_list, path);
    g_list.insert(g_list.begin(), path);
    if (g_list.size() > kMost)
        g_list.resize(kMost);
    save();
}

}  // namespace recent
