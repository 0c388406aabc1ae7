// What archivers are called with. Pure functions but for the question whether we are root; any
// thread. An archive's path is absolute; sevenzip is the program for 7z archives, and "7z" is taken
// when it is empty.

#pragma once

#include "archive_format.h"

#include <string>
#include <vector>

namespace archive_ops {

enum class ArchiveKind { Tar, Zip, SevenZ, Plain };

// Which archiver reads a file of this name. A name without a reader counts as a tar's.
[[nodiscard]] ArchiveKind kind_of(const std::string& path);

struct Command {
    std::vector<std::string> argv;
    std::string cwd;  // empty: any
};

// The names are entries of the folder that the command runs in.
[[nodiscard]] std::vector<std::string> pack_command(Format format, const std::string& archive,
                                                    const std::vector<std::string>& names,
                                                    const std::string& sevenzip);
// What keeps unzip from changing names: it leaves control characters out and cuts off what looks
// like a version, so that several entries would become one file.
struct UnzipOptions {
    bool control_characters = false;
    bool versions = false;
};
// Adds what a name, as the listing prints it, needs.
void add_needed(UnzipOptions& options, const std::string& listed_name);

// For all but plain archives.
[[nodiscard]] Command unpack_command(const std::string& archive, const std::string& target_dir,
                                     const std::string& sevenzip, const UnzipOptions& options = {});
[[nodiscard]] std::vector<std::string> list_command(const std::string& archive,
                                                    const std::string& sevenzip);

}  // namespace archive_ops
