#include "archive_ops.h"

#include "archive_ops_child.h"
#include "logger.h"
#include "paths.h"
#include "strutil.h"

#include <algorithm>
#include <atomic>
#include <glib.h>
#include <iterator>
#include <map>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <utility>

namespace archive_ops {

namespace {

// A tool that does not know "--version" is there all the same; 126 and 127 are what a shell or a
// wrapper says when there is nothing to run.
bool runs_ok(const char* tool) {
    std::string name = tool;
    std::string option = "--version";
    char* argv[] = {name.data(), option.data(), nullptr};
    int status = 0;
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL |
                                                G_SPAWN_STDERR_TO_DEV_NULL);
    if (!g_spawn_sync(nullptr, argv, nullptr, flags, nullptr, nullptr, nullptr, nullptr, &status,
                      nullptr))
        return false;
    return WIFEXITED(status) && WEXITSTATUS(status) != 126 && WEXITSTATUS(status) != 127;
}

// The formats share tools, and each is run but once. Never destroyed, since a probe that hangs may
// outlive main().
bool tool_runs(const char* tool) {
    static auto& asked = *new std::map<std::string, bool>;
    const auto found = asked.find(tool);
    if (found != asked.end())
        return found->second;
    return asked[tool] = runs_ok(tool);
}

using HasTool = bool (*)(const char* tool);

// Null when none is there.
const char* sevenzip_tool(HasTool has) {
    for (const char* tool : {"7z", "7zz", "7za"})
        if (has(tool))
            return tool;
    return nullptr;
}

bool has_tools(Format format, HasTool has) {
    switch (format) {
    case Format::TarGz:
        return has("tar") && has("gzip");
    case Format::TarXz:
        return has("tar") && has("xz");
    case Format::TarBz2:
        return has("tar") && has("bzip2");
    case Format::TarZst:
        return has("tar") && has("zstd");
    case Format::TarLz4:
        return has("tar") && has("lz4");
    case Format::Tar:
        return has("tar");
    case Format::Zip:
        return has("zip");
    case Format::SevenZ:
        return sevenzip_tool(has) != nullptr;
    }
    return false;
}

template <class Predicate>
std::vector<Format> formats_that(const Predicate& holds) {
    std::vector<Format> formats;
    std::copy_if(std::begin(kAllFormats), std::end(kAllFormats), std::back_inserter(formats),
                 holds);
    return formats;
}

bool contains(const std::vector<Format>& formats, Format format) {
    return std::find(formats.begin(), formats.end(), format) != formats.end();
}

void log_format(Format format, bool available) {
    Log::infof("archiver %-8s %s", label_for(format), available ? "available" : "missing");
}

void log_count(const std::vector<Format>& formats) {
    Log::infof("archivers: %zu of %zu formats available", formats.size(), std::size(kAllFormats));
}

struct Probe {
    std::vector<Format> guess;   // by the search path
    std::vector<Format> answer;  // the probe's thread writes it before done
    std::atomic<bool> done{false};
    bool logged = false;
};

Probe* g_probe = nullptr;  // made by announce_probe(), and never destroyed

const std::vector<Format>& probed_formats() {
    if (!g_probe->done.load(std::memory_order_acquire))
        return g_probe->guess;
    if (!std::exchange(g_probe->logged, true)) {
        for (const Format format : kAllFormats)
            log_format(format, contains(g_probe->answer, format));
        log_count(g_probe->answer);
    }
    return g_probe->answer;
}

// What only reading needs.
constexpr const char* kReadingTools[] = {"unzip", "lzip"};

// The answer about one tool that does not wait while the probe's thread is at it.
bool tool_runs_now(const char* tool) {
    if (g_probe && !g_probe->done.load(std::memory_order_acquire))
        return in_search_path(tool);
    return tool_runs(tool);
}

}  // namespace

bool announce_probe() {
    if (g_probe)
        return false;
    g_probe = new Probe;
    g_probe->guess = formats_that([](Format format) { return has_tools(format, in_search_path); });
    return true;
}

void run_probe() {
    g_probe->answer = formats_that([](Format format) { return has_tools(format, tool_runs); });
    for (const char* const tool : kReadingTools)
        (void)tool_runs(tool);
    g_probe->done.store(true, std::memory_order_release);
}

void probe_in_background(void (*first)()) {
    if (!announce_probe())
        return;
    try {
        std::thread([first] {
            first();
            run_probe();
        }).detach();
    } catch (const std::system_error& error) {
        Log::warnf("archivers: no thread to ask them: %s", error.what());
    }
}

bool format_available(Format format) {
    if (g_probe)
        return contains(probed_formats(), format);
    static std::map<Format, bool> asked;
    const auto found = asked.find(format);
    if (found != asked.end())
        return found->second;
    const bool available = has_tools(format, tool_runs);
    log_format(format, available);
    return asked[format] = available;
}

const std::vector<Format>& available_formats() {
    if (g_probe)
        return probed_formats();
    static const std::vector<Format> formats = [] {
        std::vector<Format> found = formats_that(format_available);
        log_count(found);
        return found;
    }();
    return formats;
}

const char* sevenzip_program() {
    return sevenzip_tool(tool_runs_now);
}

bool can_unpack(const std::string& path) {
    const NameReader* const reader = reader_for_name(su::basename_of(path));
    if (!reader)
        return false;
    const auto runs = [&path](const char* tool) {
        const bool it_does = tool_runs_now(tool);
        if (!it_does && std::string_view(tool) == "tar")
            Log::warnf("cannot unpack '%s': tar is not runnable", path.c_str());
        else if (!it_does)
            Log::warnf("cannot unpack '%s': '%s' is not runnable", path.c_str(), tool);
        return it_does;
    };
    const std::string_view suffix = reader->suffix;
    if (suffix == ".zip")
        return runs("unzip");
    if (suffix == ".7z")
        return sevenzip_program() != nullptr || runs("7z");
    return (reader->plain || runs("tar")) && (!*reader->tool || runs(reader->tool));
}

}  // namespace archive_ops
