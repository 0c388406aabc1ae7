// The pack dialogue: the chips of the formats that can be packed here.

#include "app.h"

#include "archive_ops.h"

namespace {

constexpr double kChipText = 11;
constexpr double kChipPadding = 22;
constexpr double kChipGap = 6;

}  // namespace

std::vector<App::FormatChip> App::pack_format_layout(double width) {
    std::vector<FormatChip> chips;
    double x = 0;
    double y = 0;
    for (const archive_ops::Format format : archive_ops::available_formats()) {
        const char* const label = archive_ops::label_for(format);
        const double w = text_width(label, kChipText, false, false) + kChipPadding;
        if (x > 0 && x + w > width) {
            x = 0;
            y += FormatChip::row_h;
        }
        chips.push_back({format, label, x, y, w});
        x += w + kChipGap;
    }
    return chips;
}

int App::pack_format_rows(double width) {
    const std::vector<FormatChip> chips = pack_format_layout(width);
    return chips.empty() ? 0 : static_cast<int>(chips.back().y / FormatChip::row_h) + 1;
}
