// The small text files of the configuration folder: read whole, replaced as a whole, and searched
// for a key. What the files mean is the callers' matter. The functions keep no state and may be
// called from any thread; two writers of one file are not kept apart.
//
// Nothing is synced to disk. A program that is killed at any moment leaves the old or the new text;
// so does a full disk.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace config_file {

// The whole file. False when it cannot be opened or read; text is then untouched.
[[nodiscard]] bool read(const std::string& path, std::string& text);

// Writes path + ".tmp" and renames it over the file. False when that fails: the old file is then
// untouched. What could not be written to its end stays under the temporary name; after a failed
// rename that is removed too.
[[nodiscard]] bool replace(const std::string& path, const std::string& text);

// Writes into the file itself, which keeps its inode, for lists of lines whose reader skips empty
// ones: where the new text is shorter, line feeds stand behind it until the file is cut. Where the
// old or the new text is longer than 4096 bytes, a kill could leave some of both, so that the file
// is replaced instead.
[[nodiscard]] bool overwrite(const std::string& path, const std::string& text);

// The lines of a text without their ends, whether these are line feeds or come with carriage
// returns.
[[nodiscard]] std::vector<std::string> lines(const std::string& text);

// The files in the form of JSON are never parsed as a whole: order, unknown keys and missing commas
// do not matter. The position behind the first colon after the first occurrence of the key in
// double quotes anywhere in the text, or npos.
[[nodiscard]] size_t value_start(const std::string& text, const char* key);

}  // namespace config_file
