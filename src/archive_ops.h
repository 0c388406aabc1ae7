// Which archive formats can be packed here, by the tools that are installed. Interface thread, but
// for run_probe().
//
// Each tool is run once, which takes time. So that no frame waits for it, announce_probe() makes
// the questions go by what is in the search path until run_probe(), on a thread of its own, has the
// answer. Without it the first question runs the tools itself and waits.

#pragma once

#include "archive_format.h"

#include <vector>

namespace archive_ops {

// False: there has been one.
[[nodiscard]] bool announce_probe();
// Once, after announce_probe(); any thread. It may outlive main().
void run_probe();
// Both, the second on a thread that nobody waits for, since a tool that hangs must not keep the
// program; `first` runs there before it. Where no thread is to be had the search path is the
// answer.
void probe_in_background(void (*first)());

// Whether all tools that the format needs can be run.
[[nodiscard]] bool format_available(Format format);

// In the order of kAllFormats. Valid for the whole run; after a probe the list is another one.
[[nodiscard]] const std::vector<Format>& available_formats();

}  // namespace archive_ops
