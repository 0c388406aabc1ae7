// The lines that ferrodeck-helper is given: one operation each, fields separated by one tab. What
// they may hold is decided here, before anything is touched.
//
// The C library and the language's own alone, as in all of the helper: what runs as root links
// nothing that it does not need.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace batch {

enum class Verb { Copy, MakeDir, Remove, Chmod, Chown };

constexpr int64_t kUnchanged = -1;

struct Operation {
    Verb verb = Verb::Copy;
    std::string source;  // of a Copy alone; absolute, like the target
    std::string target;
    int64_t mode = kUnchanged;  // the low twelve bits
    int64_t uid = kUnchanged;
    int64_t gid = kUnchanged;
};

// Why the line is no operation, or empty.
[[nodiscard]] std::string parse(std::string_view line, Operation& operation);

// The lines without their ends. A last one that is not ended may have been cut off anywhere, and
// what is left of a path is another path: `complete` is then false, and that line must not be
// carried out.
[[nodiscard]] std::vector<std::string_view> lines_of(std::string_view input, bool& complete);

}  // namespace batch
