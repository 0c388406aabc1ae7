// The archive formats that the program can pack, with the names that the user and the settings
// know them by. Values and pure functions; any thread.

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

}  // namespace archive_ops
