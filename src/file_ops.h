// Single-shot commands on entries. Each returns the text to show, empty for success. Interface
// thread; all but start_clone may block on a slow device, which is accepted for single entries.

#pragma once

#include <string>
#include <vector>

namespace file_ops {

// Whether an entry of `dir` may get this name. `current` is the name it has now, empty for none.
[[nodiscard]] std::string validate_name(const std::string& dir, const std::string& name,
                                        const std::string& current);

// A name equal to the old one is a success without a call. Never replaces what has the name.
[[nodiscard]] std::string rename_entry(const std::string& path, const std::string& new_name);

// The name is validated first. An empty file never takes the place of anything.
[[nodiscard]] std::string create_directory(const std::string& dir, const std::string& name);
[[nodiscard]] std::string create_empty_file(const std::string& dir, const std::string& name);

// Duplicates the paths in their own folder under free names. False when a transfer runs.
[[nodiscard]] bool start_clone(const std::vector<std::string>& paths, int threads);

// Hands the file to the desktop's default program.
[[nodiscard]] std::string open_with_default_app(const std::string& path);

}  // namespace file_ops
