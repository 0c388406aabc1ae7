#include "archive_ops.h"

#include "logger.h"

#include <glib.h>
#include <iterator>
#include <map>
#include <string>
#include <sys/wait.h>

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

// The formats share tools, and each is run but once.
bool tool_runs(const char* tool) {
    static std::map<std::string, bool> asked;
    const auto found = asked.find(tool);
    if (found != asked.end())
        return found->second;
    return asked[tool] = runs_ok(tool);
}

// Null when none is there.
const char* sevenzip_tool() {
    for (const char* tool : {"7z", "7zz", "7za"})
        if (tool_runs(tool))
            return tool;
    return nullptr;
}

bool tools_run(Format format) {
    switch (format) {
    case Format::TarGz:
        return tool_runs("tar") && tool_runs("gzip");
    case Format::TarXz:
        return tool_runs("tar") && tool_runs("xz");
    case Format::TarBz2:
        return tool_runs("tar") && tool_runs("bzip2");
    case Format::TarZst:
        return tool_runs("tar") && tool_runs("zstd");
    case Format::TarLz4:
        return tool_runs("tar") && tool_runs("lz4");
    case Format::Tar:
        return tool_runs("tar");
    case Format::Zip:
        return tool_runs("zip");
    case Format::SevenZ:
        return sevenzip_tool() != nullptr;
    }
    return false;
}

}  // namespace

bool format_available(Format format) {
    static std::map<Format, bool> asked;
    const auto found = asked.find(format);
    if (found != asked.end())
        return found->second;
    const bool available = tools_run(format);
    Log::infof("archiver %-8s %s", label_for(format), available ? "available" : "missing");
    return asked[format] = available;
}

const std::vector<Format>& available_formats() {
    static const std::vector<Format> formats = [] {
        std::vector<Format> found;
        for (const Format format : kAllFormats)
            if (format_available(format))
                found.push_back(format);
        Log::infof("archivers: %zu of %zu formats available", found.size(), std::size(kAllFormats));
        return found;
    }();
    return formats;
}

}  // namespace archive_ops
