#include "elevate.h"

#include "i18n.h"
#include "paths.h"
#include "strutil.h"

#include <cstdlib>
#include <glib.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace elevate {

namespace {

constexpr const char* kInstalled[] = {"/usr/libexec/ferrodeck/ferrodeck-helper",
                                      "/usr/lib/ferrodeck/ferrodeck-helper"};

bool is_file(const std::string& path) {
    struct stat st = {};
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool belongs_to_root(const std::string& path) {
    struct stat st = {};
    return stat(path.c_str(), &st) == 0 && st.st_uid == 0;
}

// A program that the user has unpacked somewhere must not bring along what root is to run.
bool is_trusted(const std::string& helper, const std::string& folder) {
    return std::string_view(package_kind()) == "dev" ||
           (belongs_to_root(helper) && belongs_to_root(folder));
}

bool in_path(const char* program) {
    char* const found = g_find_program_in_path(program);
    g_free(found);
    return found != nullptr;
}

}  // namespace

std::string helper_path() {
    char link[4096] = "";
    const ssize_t length = readlink("/proc/self/exe", link, sizeof link - 1);
    if (length > 0) {
        const std::string folder = su::parent_of(std::string(link, static_cast<size_t>(length)));
        const std::string beside = folder + "/ferrodeck-helper";
        if (is_file(beside) && is_trusted(beside, folder))
            return beside;
    }
    for (const char* const path : kInstalled)
        if (is_file(path))
            return path;
    return {};
}

Availability availability() {
    if (running_as_root())
        return Availability::AlreadyRoot;
    if (std::getenv("SNAP") || running_in_flatpak())
        return Availability::Sandboxed;
    if (!in_path("pkexec"))
        return Availability::NoPkexec;
    return helper_path().empty() ? Availability::NoHelper : Availability::Yes;
}

std::string unavailable_reason() {
    switch (availability()) {
    case Availability::NoPkexec:
        return tr("elevate.no_pkexec");
    case Availability::NoHelper:
        return tr("elevate.no_helper");
    case Availability::Sandboxed:
        return tr("elevate.sandboxed");
    case Availability::Yes:
    case Availability::AlreadyRoot:
        break;
    }
    return {};
}

}  // namespace elevate
