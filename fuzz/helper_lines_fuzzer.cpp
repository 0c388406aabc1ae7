// The lines that the helper is given as root.

#include "batch.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

void require(bool good) {
    if (!good)
        abort();
}

// Whether a path leads, component by component, to what it says and nowhere else.
bool leads_down(const std::string& path) {
    return !path.empty() && path[0] == '/' && path.find('\0') == path.npos &&
           path.find('\n') == path.npos && path.find('\t') == path.npos &&
           (path + "/").find("/../") == path.npos && (path + "/").find("/./") == path.npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    bool complete = false;
    size_t bytes = 0;
    for (const std::string_view line : batch::lines_of(input, complete)) {
        bytes += line.size() + 1;
        batch::Operation op;
        if (!batch::parse(line, op).empty())
            continue;
        const bool copies = op.verb == batch::Verb::Copy;
        require(leads_down(op.target) && (copies ? leads_down(op.source) : op.source.empty()));
        require(op.mode >= -1 && op.mode <= 07777 && op.uid >= -1 && op.uid < 0xffffffff &&
                op.gid >= -1 && op.gid < 0xffffffff);
        require(op.verb != batch::Verb::Remove ||
                op.target.find_first_not_of('/') != op.target.npos);
        require(op.verb != batch::Verb::MakeDir || op.mode >= 0);
    }
    require(bytes == size + (complete ? 0 : 1));
    return 0;
}
