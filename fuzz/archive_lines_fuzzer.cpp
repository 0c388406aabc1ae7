// What archivers print of an archive holds names that whoever packed it has chosen.

#include "archive_ops_child.h"
#include "archive_ops_list.h"

#include <cstdlib>
#include <string>

namespace {

// Unlike assert(), also in builds that define NDEBUG.
void require(bool holds) {
    if (!holds)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::vector<std::string> lines;
    archive_ops::LineCutter cutter([&lines](const std::string& line) { lines.push_back(line); });
    // The lines do not depend on where a read has ended.
    const size_t cut = text.empty() ? 0 : data[0] % text.size();
    cutter.add(std::string_view(text).substr(0, cut));
    cutter.add(std::string_view(text).substr(cut));
    cutter.finish();
    std::vector<std::string> whole;
    archive_ops::LineCutter once([&whole](const std::string& line) { whole.push_back(line); });
    once.add(text);
    once.finish();
    require(lines == whole);

    for (const std::string& line : lines) {
        require(line.find('\n') == std::string::npos);
        for (size_t most = 1; most < 8; ++most) {
            const std::vector<std::string> fields = archive_ops::split_fields(line, most);
            require(fields.size() <= most);
            for (const std::string& field : fields)
                require(!field.empty() && field[0] != ' ' && field[0] != '\t' &&
                        line.find(field) != std::string::npos);
        }
        for (const archive_ops::ParseLine parse :
             {archive_ops::parse_zip_line, archive_ops::parse_7z_line,
              archive_ops::parse_tar_line}) {
            archive_ops::ListEntry entry;
            if (!parse(line, entry)) {
                require(entry.name.empty() && entry.size == -1 && !entry.is_dir);
                continue;
            }
            require(line.find(entry.name) != std::string::npos);
            require(!archive_ops::begins_zip_entries(line));
        }
    }
    return 0;
}
