// The archivers' listings, a line at a time. Pure functions; any thread. False: the line tells of
// no entry, as those of heads and feet do, and the entry is untouched.

#pragma once

#include "archive_ops.h"

#include <string>
#include <vector>

namespace archive_ops {

// Split at runs of blanks. The last field is the rest of the line from its first character that is
// no blank, with the blanks in it. No field is empty.
[[nodiscard]] std::vector<std::string> split_fields(const std::string& line, size_t max_fields);

using ParseLine = bool (*)(const std::string& line, ListEntry& entry);

[[nodiscard]] bool parse_zip_line(const std::string& line, ListEntry& entry);
// The line that stands above the entries. The archive's comment stands above that, and may look
// like entries.
[[nodiscard]] bool begins_zip_entries(const std::string& line);
[[nodiscard]] bool parse_7z_line(const std::string& line, ListEntry& entry);
[[nodiscard]] bool parse_tar_line(const std::string& line, ListEntry& entry);

}  // namespace archive_ops
