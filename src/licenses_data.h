// The free components that the program uses. A list to be shown; nothing follows from it.

#pragma once

#include <iterator>
#include <string>
#include <vector>

namespace licenses_data {

struct Component {
    const char* name;
    const char* license;
    bool bundled;  // some packages ship it along; else it is a program that is run
};

// Those that are bundled come first. Two licences keep their German words.
inline constexpr Component COMPONENTS[] = {
    {"GTK 3", "LGPL-2.1-or-later", true},
    {"GLib", "LGPL-2.1-or-later", true},
    {"Pango", "LGPL-2.1-or-later", true},
    {"Cairo", "LGPL-2.1 or MPL-1.1", true},
    {"gdk-pixbuf", "LGPL-2.1-or-later", true},
    {"ATK / AT-SPI", "LGPL-2.1-or-later", true},
    {"FreeType", "FTL or GPL-2-or-later", true},
    {"FriBidi", "LGPL-2.1-or-later", true},
    {"Graphite2", "LGPL-2.1-or-later or MPL-1.1", true},
    {"libthai / libdatrie", "LGPL-2.1-or-later", true},
    {"systemd (libsystemd)", "LGPL-2.1-or-later", true},
    {"util-linux (libmount, libblkid)", "LGPL-2.1-or-later", true},
    {"libgcrypt / libgpg-error", "LGPL-2.1-or-later", true},
    {"GNU C Library", "LGPL-2.1-or-later", true},
    {"tar", "GPL-3.0-or-later", false},
    {"gzip", "GPL-3.0-or-later", false},
    {"XZ Utils (xz)", "GPL-2.0-or-later (Werkzeuge)", false},
    {"bzip2", "BSD-style", false},
    {"Zstandard (zstd)", "BSD-3-clause or GPL-2", false},
    {"LZ4 (lz4)", "GPL-2.0-or-later (Werkzeug)", false},
    {"Info-ZIP (zip)", "Info-ZIP license", false},
    {"Info-ZIP (unzip)", "Info-ZIP license", false},
    {"p7zip / 7-Zip", "LGPL-2.1-or-later with unRAR restriction", false},
    {"Zenity", "LGPL-2.1-or-later", false},
};
static_assert(std::size(COMPONENTS) == 24);

// Further projects under MIT, BSD and similar licences among what GTK 3 is linked with: 13 of X11,
// and brotli, libbsd, libcap, D-Bus, libepoxy, Expat, libffi, Fontconfig, HarfBuzz, libjpeg-turbo,
// liblz4, liblzma, libmd, PCRE2, Pixman, libpng, libselinux, Wayland, libxkbcommon, zlib, libzstd.
inline constexpr int OTHERS = 34;

// Where a package may keep the texts of the licences, the likeliest first.
[[nodiscard]] std::vector<std::string> text_folders();
// The first of these that is a folder; empty for none. Asks the disk.
[[nodiscard]] std::string first_folder(const std::vector<std::string>& folders);

}  // namespace licenses_data
