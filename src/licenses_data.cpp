#include "licenses_data.h"

#include "strutil.h"

#include <glib.h>
#include <sys/stat.h>

namespace licenses_data {

std::vector<std::string> text_folders() {
    std::vector<std::string> folders;
    // Beside the program, wherever its package has been put.
    if (char* const program = g_file_read_link("/proc/self/exe", nullptr)) {
        folders.push_back(
            su::join_path(su::parent_of(su::parent_of(program)), "share/licenses/ferrodeck"));
        g_free(program);
    }
    folders.emplace_back("/usr/share/licenses/ferrodeck");
    folders.emplace_back("/usr/share/common-licenses");  // Debian and its kin
    return folders;
}

std::string first_folder(const std::vector<std::string>& folders) {
    for (const std::string& folder : folders) {
        struct stat st = {};
        if (stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
            return folder;
    }
    return {};
}

}  // namespace licenses_data
