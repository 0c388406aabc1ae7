// The program's logo, compiled in.

#pragma once

#include <cstddef>

namespace icon_data {

// A PNG file, square.
extern const unsigned char PNG[];
extern const size_t PNG_BYTES;

}  // namespace icon_data
