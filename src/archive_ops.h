// Archives, by the system's own archivers: which formats can be packed and unpacked here, the
// background tasks that do it, and the listing of what an archive holds. Interface thread, but for
// run_probe().
//
// Each tool is run once, which takes time. So that no frame waits for it, announce_probe() makes
// the questions go by what is in the search path until run_probe(), on a thread of its own, has the
// answer. Without it the first question runs the tools itself and waits.

#pragma once

#include "archive_format.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
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

// Whether a file of this name can be read as an archive, were the tools there.
[[nodiscard]] inline bool is_archive_name(std::string_view name) {
    return reader_for_name(name) != nullptr;
}

// The name of the single file that a compressed file unpacks to; of any other name the base name.
[[nodiscard]] std::string plain_inner_name(const std::string& path);

// Whether all tools that reading the archive needs can be run. What is missing is logged. By the
// name alone: the file is not looked at.
[[nodiscard]] bool can_unpack(const std::string& path);

// --- Background tasks
// -----------------------------------------------------------------------------

// Packs entries of the folder `base`, given by their paths, into a new archive: a path with the
// format's ending, at which nothing may stand. The task's result tells name and size, its failures
// are what the archiver said; a task that fails or is cancelled leaves no archive. The title is
// shown with it. False when a task runs.
[[nodiscard]] bool start_pack(std::vector<std::string> sources, const std::string& base,
                              const std::string& archive, Format format, const std::string& title);

// Unpacks into a folder, which is made if it is missing. What is there under an entry's name may be
// overwritten, but not by a single compressed file. What is out stays, whatever happens then. False
// when a task runs.
[[nodiscard]] bool start_unpack(const std::string& archive, const std::string& target_dir,
                                const std::string& title);

// --- Listing
// --------------------------------------------------------------------------------------

struct ListEntry {
    std::string name;   // as the archiver prints it, which need not be UTF-8
    int64_t size = -1;  // bytes; -1: unknown
    bool is_dir = false;
};

struct ListStatus {
    bool running = false;
    bool done = false;  // also when it failed; not when cancelled
    std::string error;  // in words, empty for success; what was read until then is listed
    size_t count = 0;   // entries so far, folders among them
    size_t dirs = 0;
    int64_t total_size = 0;  // bytes of all entries of known size but folders
    std::string archive;     // empty: nothing is listed
};

// Reads the archive's contents in the background. Takes the place of an earlier listing.
void start_list(const std::string& path);
[[nodiscard]] ListStatus list_status();
// At most `count` entries from `first` on; fewer at the end, none behind it.
[[nodiscard]] std::vector<ListEntry> list_slice(size_t first, size_t count);
// Stops a listing and forgets what it has read. Waits for the archiver's end, but not for one that
// does not heed.
void cancel_list();

}  // namespace archive_ops
