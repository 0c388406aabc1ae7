// What the program has logged so far, for tests that expect a line.

#pragma once

#include <string>

namespace test_env {

// Lines that are exactly this text, at whatever level.
int logged(const std::string& text);
// Lines that hold this text.
int logged_with(const std::string& part);
// All lines as one text, for a failure message.
std::string log_text();

}  // namespace test_env
