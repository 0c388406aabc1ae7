// Small files as a bad disk, a bad editor or a bad mood leaves them.

#pragma once

#include <random>
#include <string>

namespace test_env {

// The text after some changes: bytes altered, cut out or doubled, the end cut off, or a line moved.
// The same generator state gives the same text.
std::string mutated(std::string text, std::mt19937& random);

}  // namespace test_env
