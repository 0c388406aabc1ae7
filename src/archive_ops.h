// Which archive formats can be packed here, by the tools that are installed. Interface thread; the
// first question of each kind runs the tools and waits for them.

#pragma once

#include "archive_format.h"

#include <vector>

namespace archive_ops {

// Whether all tools that the format needs can be run. Asked once for each format.
[[nodiscard]] bool format_available(Format format);

// In the order of kAllFormats. Asked once; valid for the whole run.
[[nodiscard]] const std::vector<Format>& available_formats();

}  // namespace archive_ops
