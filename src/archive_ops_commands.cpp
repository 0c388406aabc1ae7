#include "archive_ops_commands.h"

#include "strutil.h"

#include <algorithm>
#include <string_view>
#include <unistd.h>

namespace archive_ops {

namespace {

bool has_any(const std::string& text, const char* characters) {
    return text.find_first_of(characters) != std::string::npos;
}

bool one_has(const std::vector<std::string>& names, const char* characters) {
    return std::any_of(names.begin(), names.end(),
                       [characters](const std::string& name) { return has_any(name, characters); });
}

std::string program_or_7z(const std::string& sevenzip) {
    return sevenzip.empty() ? "7z" : sevenzip;
}

// tar takes a backslash in a name for the start of an escape.
constexpr const char* kTarSpecial = "\\";
constexpr const char* kNoUnquote = "--no-unquote";
// 7z takes these for a pattern in any path.
constexpr const char* k7zSpecial = "*?";
constexpr const char* kNoWildcards = "-spd";

// Whether unzip takes a path for a pattern. A backslash takes the meaning from what follows it.
bool unzip_sees_pattern(const std::string& path) {
    for (size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '\\')
            ++i;
        else if (path[i] == '[' || path[i] == '*' || path[i] == '?')
            return true;
    }
    return false;
}

// The pattern that matches this path alone. Only the last component is one; unzip opens the folder
// by its name as it stands.
std::string unzip_path(const std::string& path) {
    if (!unzip_sees_pattern(path))
        return path;
    const size_t name = path.rfind('/') + 1;
    std::string result = path.substr(0, name);
    for (const char c : std::string_view(path).substr(name)) {
        if (c == '[' || c == '*' || c == '?')
            result += std::string("[") + c + "]";
        else if (c == '\\')
            result += "\\\\";
        else
            result += c;
    }
    return result;
}

// Empty: tar finds the program itself.
std::string tar_compress_arg(const std::string& path) {
    const NameReader* const reader = reader_for_name(su::basename_of(path));
    return reader && *reader->tar_program
               ? std::string("--use-compress-program=") + reader->tar_program
               : std::string();
}

void append(std::vector<std::string>& argv, const std::vector<std::string>& more) {
    argv.insert(argv.end(), more.begin(), more.end());
}

}  // namespace

ArchiveKind kind_of(const std::string& path) {
    const NameReader* const reader = reader_for_name(su::basename_of(path));
    if (!reader)
        return ArchiveKind::Tar;
    if (reader->plain)
        return ArchiveKind::Plain;
    const std::string_view suffix = reader->suffix;
    if (suffix == ".zip")
        return ArchiveKind::Zip;
    return suffix == ".7z" ? ArchiveKind::SevenZ : ArchiveKind::Tar;
}

std::vector<std::string> pack_command(Format format, const std::string& archive,
                                      const std::vector<std::string>& names,
                                      const std::string& sevenzip) {
    std::vector<std::string> argv;
    const auto tar = [&](const std::vector<std::string>& options) {
        argv = {"tar"};
        if (one_has(names, kTarSpecial))
            argv.emplace_back(kNoUnquote);
        append(argv, options);
        append(argv, {archive, "--"});
        append(argv, names);
    };
    switch (format) {
    case Format::TarGz:
        tar({"-czvf"});
        break;
    case Format::TarXz:
        tar({"-cJvf"});
        break;
    case Format::TarBz2:
        tar({"-cjvf"});
        break;
    case Format::TarZst:
        tar({"--use-compress-program=zstd", "-cvf"});
        break;
    case Format::TarLz4:
        tar({"--use-compress-program=lz4", "-cvf"});
        break;
    case Format::Tar:
        tar({"-cvf"});
        break;
    case Format::Zip:
        argv = {"zip", "-r", "-y", archive};
        // zip knows no "--", and stores "./-name" as "-name".
        for (const std::string& name : names)
            argv.push_back(su::starts_with(name, "-") ? "./" + name : name);
        break;
    case Format::SevenZ:
        argv = {program_or_7z(sevenzip), "a", "-bd", "-bb1", "-y"};
        if (has_any(archive, k7zSpecial) || one_has(names, k7zSpecial))
            argv.emplace_back(kNoWildcards);
        append(argv, {archive, "--"});
        // Not all versions of 7z take "@name" for a name here, but for a list of names.
        for (const std::string& name : names)
            argv.push_back(su::starts_with(name, "@") ? "./" + name : name);
        break;
    }
    return argv;
}

void add_needed(UnzipOptions& options, const std::string& listed_name) {
    // "^J" for a newline. The byte 255 counts as a control character too.
    if (has_any(listed_name, "^\xff"))
        options.control_characters = true;
    const size_t last = listed_name.find_last_not_of("0123456789");
    if (last != std::string::npos && listed_name[last] == ';')
        options.versions = true;
}

Command unpack_command(const std::string& archive, const std::string& target_dir,
                       const std::string& sevenzip, const UnzipOptions& options) {
    Command command;
    std::vector<std::string>& argv = command.argv;
    switch (kind_of(archive)) {
    case ArchiveKind::Zip:
        argv = {"unzip", "-o"};
        if (options.control_characters)
            argv.emplace_back("-^");
        if (options.versions)
            argv.emplace_back("-V");
        append(argv, {unzip_path(archive), "-d", target_dir});
        return command;
    case ArchiveKind::SevenZ: {
        argv = {program_or_7z(sevenzip), "x", "-bd", "-bb1", "-y"};
        if (has_any(archive, k7zSpecial))
            argv.emplace_back(kNoWildcards);
        // For an asterisk in the target 7z puts the archive's name.
        const bool inside = has_any(target_dir, "*");
        if (inside)
            command.cwd = target_dir;
        append(argv, {inside ? "-o." : "-o" + target_dir, archive});
        return command;
    }
    case ArchiveKind::Tar:
    case ArchiveKind::Plain:
        break;
    }
    argv = {"tar"};
    // Root is to own what root unpacks, with the modes that root's new files have.
    if (geteuid() == 0)
        append(argv, {"--no-same-owner", "--no-same-permissions"});
    if (has_any(target_dir, kTarSpecial))
        argv.emplace_back(kNoUnquote);
    const std::string program = tar_compress_arg(archive);
    if (program.empty())
        append(argv, {"-xavf", archive, "-C", target_dir});
    else
        append(argv, {program, "-xvf", archive, "-C", target_dir});
    return command;
}

std::vector<std::string> list_command(const std::string& archive, const std::string& sevenzip) {
    switch (kind_of(archive)) {
    case ArchiveKind::Zip:
        return {"unzip", "-l", unzip_path(archive)};
    case ArchiveKind::SevenZ: {
        std::vector<std::string> argv = {program_or_7z(sevenzip), "l", "-bd"};
        if (has_any(archive, k7zSpecial))
            argv.emplace_back(kNoWildcards);
        argv.push_back(archive);
        return argv;
    }
    case ArchiveKind::Tar:
    case ArchiveKind::Plain:
        break;
    }
    const std::string program = tar_compress_arg(archive);
    if (program.empty())
        return {"tar", "-tavf", archive};
    return {"tar", program, "-tvf", archive};
}

}  // namespace archive_ops
