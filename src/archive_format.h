// The archive formats that the program can pack, with the names that the user and the settings
// know them by, and the names of files that it can read. Values and pure functions; any thread.

#pragma once

#include <cstdint>
#include <string_view>

namespace archive_ops {

enum class Format : int32_t {
    TarGz = 0,
    TarXz = 1,
    TarBz2 = 2,
    TarZst = 3,
    TarLz4 = 4,
    Tar = 5,
    Zip = 6,
    SevenZ = 7,
};

// In the order in which they are offered.
inline constexpr Format kAllFormats[] = {
    Format::TarGz,  Format::TarXz, Format::TarBz2, Format::TarZst,
    Format::TarLz4, Format::Tar,   Format::Zip,    Format::SevenZ,
};

// With the leading point.
[[nodiscard]] constexpr const char* extension_for(Format format) {
    switch (format) {
    case Format::TarGz:
        return ".tar.gz";
    case Format::TarXz:
        return ".tar.xz";
    case Format::TarBz2:
        return ".tar.bz2";
    case Format::TarZst:
        return ".tar.zst";
    case Format::TarLz4:
        return ".tar.lz4";
    case Format::Tar:
        return ".tar";
    case Format::Zip:
        return ".zip";
    case Format::SevenZ:
        return ".7z";
    }
    return ".tar.gz";
}

[[nodiscard]] constexpr const char* label_for(Format format) {
    return extension_for(format) + 1;
}

// The reverse of label_for(); TarGz for anything unknown.
[[nodiscard]] constexpr Format format_from_label(std::string_view label) {
    for (const Format format : kAllFormats)
        if (label == label_for(format))
            return format;
    return Format::TarGz;
}

// How an archive is read, by the ending of its name.
struct NameReader {
    const char* suffix;
    const char* tool;         // empty: none beside the archiver itself
    const char* tar_program;  // what tar has to be told to decompress with; empty: it knows
    bool plain;               // one compressed file, no tar
};

// In the order in which they are tried: compound endings before the plain ones.
inline constexpr NameReader kNameReaders[] = {
    {".tar.gz", "gzip", "", false},   {".tgz", "gzip", "", false},
    {".tar.xz", "xz", "", false},     {".txz", "xz", "", false},
    {".tar.lzma", "xz", "", false},   {".tar.lz", "lzip", "", false},
    {".tar.bz2", "bzip2", "", false}, {".tbz2", "bzip2", "", false},
    {".tbz", "bzip2", "", false},     {".tar.zst", "zstd", "", false},
    {".tzst", "zstd", "", false},     {".tar.lz4", "lz4", "lz4", false},
    {".tar", "", "", false},          {".zip", "unzip", "", false},
    {".7z", "", "", false},           {".gz", "gzip", "", true},
    {".xz", "xz", "", true},          {".lzma", "xz", "", true},
    {".bz2", "bzip2", "", true},      {".zst", "zstd", "", true},
    {".lz4", "lz4", "", true},        {".lz", "lzip", "", true},
};

// Null when the name is no archive's. Without regard to ASCII case.
[[nodiscard]] constexpr const NameReader* reader_for_name(std::string_view name) {
    const auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    for (const NameReader& reader : kNameReaders) {
        const std::string_view suffix = reader.suffix;
        if (name.size() < suffix.size())
            continue;
        const std::string_view ending = name.substr(name.size() - suffix.size());
        bool same = true;
        for (size_t i = 0; same && i < suffix.size(); ++i)
            same = lower(ending[i]) == suffix[i];
        if (same)
            return &reader;
    }
    return nullptr;
}

}  // namespace archive_ops
