#include "licenses_data.h"

#include "test_env.h"

#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using licenses_data::COMPONENTS;

TEST(LicensesData, the_components_in_their_order) {
    constexpr const char* kRows[] = {
        "GTK 3|LGPL-2.1-or-later|yes",
        "GLib|LGPL-2.1-or-later|yes",
        "Pango|LGPL-2.1-or-later|yes",
        "Cairo|LGPL-2.1 or MPL-1.1|yes",
        "gdk-pixbuf|LGPL-2.1-or-later|yes",
        "ATK / AT-SPI|LGPL-2.1-or-later|yes",
        "FreeType|FTL or GPL-2-or-later|yes",
        "FriBidi|LGPL-2.1-or-later|yes",
        "Graphite2|LGPL-2.1-or-later or MPL-1.1|yes",
        "libthai / libdatrie|LGPL-2.1-or-later|yes",
        "systemd (libsystemd)|LGPL-2.1-or-later|yes",
        "util-linux (libmount, libblkid)|LGPL-2.1-or-later|yes",
        "libgcrypt / libgpg-error|LGPL-2.1-or-later|yes",
        "GNU C Library|LGPL-2.1-or-later|yes",
        "tar|GPL-3.0-or-later|no",
        "gzip|GPL-3.0-or-later|no",
        "XZ Utils (xz)|GPL-2.0-or-later (Werkzeuge)|no",
        "bzip2|BSD-style|no",
        "Zstandard (zstd)|BSD-3-clause or GPL-2|no",
        "LZ4 (lz4)|GPL-2.0-or-later (Werkzeug)|no",
        "Info-ZIP (zip)|Info-ZIP license|no",
        "Info-ZIP (unzip)|Info-ZIP license|no",
        "p7zip / 7-Zip|LGPL-2.1-or-later with unRAR restriction|no",
        "Zenity|LGPL-2.1-or-later|no",
    };
    ASSERT_EQ(std::size(COMPONENTS), std::size(kRows));
    for (size_t i = 0; i < std::size(kRows); ++i)
        EXPECT_EQ(std::string(COMPONENTS[i].name) + "|" + COMPONENTS[i].license + "|" +
                      (COMPONENTS[i].bundled ? "yes" : "no"),
                  kRows[i]);
}

TEST(LicensesData, the_first_folder_that_is_there_has_the_texts) {
    const test_env::TempDir dir;
    test_env::write_file(dir / "file", "x");
    test_env::make_dirs(dir / "second");
    test_env::make_dirs(dir / "third");
    EXPECT_EQ(
        licenses_data::first_folder({dir / "none", dir / "file", dir / "second", dir / "third"}),
        dir / "second");
    EXPECT_EQ(licenses_data::first_folder({dir / "none"}), "");
    EXPECT_EQ(licenses_data::first_folder({}), "");
}

TEST(LicensesData, the_texts_are_looked_for_beside_the_program_and_then_in_the_system) {
    const std::vector<std::string> folders = licenses_data::text_folders();
    ASSERT_EQ(folders.size(), 3U);
    char program[4096] = "";
    ASSERT_GT(readlink("/proc/self/exe", program, sizeof program - 1), 0);
    const std::string path = program;
    const size_t folder = path.rfind('/', path.rfind('/') - 1);
    EXPECT_EQ(folders[0], path.substr(0, folder) + "/share/licenses/ferrodeck");
    EXPECT_EQ(folders[1], "/usr/share/licenses/ferrodeck");
    EXPECT_EQ(folders[2], "/usr/share/common-licenses");
}

}  // namespace
