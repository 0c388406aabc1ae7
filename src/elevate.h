// Whether single operations can be repeated with root's rights: by the installed helper program,
// which pkexec starts once the user has given a password.
//
// Looks at the disk with each question: for a command of the user's, not for a frame. Interface
// thread.

#pragma once

#include <string>

namespace elevate {

enum class Availability { Yes = 0, AlreadyRoot = 1, NoPkexec = 2, NoHelper = 3, Sandboxed = 4 };

[[nodiscard]] Availability availability();
// In words for the user; empty when it is available, or when we are root anyway.
[[nodiscard]] std::string unavailable_reason();
// Where the helper is, or empty.
[[nodiscard]] std::string helper_path();

}  // namespace elevate
