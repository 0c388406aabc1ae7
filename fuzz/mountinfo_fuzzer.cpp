// The kernel's mount table holds names that any user who may mount has chosen.

#include "mounts.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>

namespace {

// Unlike assert(), also in builds that define NDEBUG.
void require(bool holds) {
    if (!holds)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    require(mounts::unescape(text).size() <= text.size());

    std::istringstream in(text);
    const std::vector<mounts::Mount> table = mounts::parse_mountinfo(in);
    require(table.size() <= static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
    for (const mounts::Mount& mount : table) {
        require(!mount.point.empty() && !mount.fs_type.empty() && !mount.source.empty());
        if (mount.point[0] != '/')
            continue;
        // Of a mount point the answer is this very mount, or one that lies on top of it.
        const mounts::Mount* found = mounts::lookup(table, mount.point);
        require(found && found->point == mount.point);
        require(mounts::lookup(table, mount.point + "/x") != nullptr);
    }
    const std::vector<mounts::Mount> roots = mounts::scannable_roots_of(table);
    require(roots.size() <= table.size());
    for (const mounts::Mount& root : roots)
        require(!mounts::is_pseudo_fs(root.fs_type) && root.fs_type != "tmpfs");
    require(mounts::scannable_roots_of(roots).size() == roots.size());
    return 0;
}
