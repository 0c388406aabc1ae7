// Where the user's things live, and in what kind of package the program runs. Free functions,
// callable from any thread; none logs, since the log itself asks for config_dir(). A failing system
// call leads to the next answer in line, never to a message. An environment variable that is set to
// the empty string counts as not set.

#pragma once

#include <string>

// An absolute path as the panes hold it, where it is shown, joined and compared as text: no slash
// twice or at the end, and "." and ".." resolved, if it leads anywhere.
[[nodiscard]] std::string tidy_path(std::string path);

// The user's real home, also inside a Snap, whose HOME points into the sandbox. Empty if unknown.
[[nodiscard]] std::string real_home();

// The freedesktop trash's folder of files, or empty. It is not created here.
[[nodiscard]] std::string trash_dir();

// The program's own configuration directory, created with mode 0700 if it is missing. A process
// raised to root uses root's home, whatever HOME says, so that it never leaves root's files among
// the user's. "." when there is nothing better.
[[nodiscard]] std::string config_dir();

// These answers are taken once and stay for the run.
[[nodiscard]] bool running_in_snap();
[[nodiscard]] bool running_in_flatpak();
[[nodiscard]] bool running_as_root();
// "snap", "flatpak", "appimage", "system" or "dev".
[[nodiscard]] const char* package_kind();
[[nodiscard]] bool hostfs_available();
[[nodiscard]] bool removable_media_available();

// Who called sudo or pkexec, or empty.
[[nodiscard]] std::string invoking_user();

// Whether a program is found in the search path as it is now. It need not run.
[[nodiscard]] bool in_search_path(const char* program);

// In a Snap, a path as the user knows it, turned into one that this process can open, and back.
// Elsewhere the path itself.
[[nodiscard]] std::string to_scan_path(const std::string& path);
[[nodiscard]] std::string to_display_path(const std::string& path);

// What connects, in a terminal, the interfaces that a Snap may do without at first.
const char* snap_connect_command();

// Whether the sandbox lets us write there at all. Always true outside a Snap.
[[nodiscard]] bool is_writable_location(const std::string& path);
