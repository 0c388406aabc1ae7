#include "window_manager.h"

#include "config_file.h"
#include "paths.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace {

constexpr int kTooNarrow = 999;  // a width must be more than this, a height more than the next
constexpr int kTooLow = 699;
constexpr int kDefaultWidth = 1100;
constexpr int kDefaultHeight = 720;
constexpr int kNoPosition = -1000000;

// The number behind the key, wherever on the lines that follow it begins. What is no number, or
// more than an int holds, is the fallback.
int read_int(const std::string& text, const char* key, int fallback) {
    const size_t start = config_file::value_start(text, key);
    if (start == std::string::npos)
        return fallback;
    const char* const begin = text.c_str() + start;
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(begin, &end, 10);
    if (end == begin || errno == ERANGE || value < INT_MIN || value > INT_MAX)
        return fallback;
    return static_cast<int>(value);
}

}  // namespace

WindowManager& WindowManager::instance() {
    static WindowManager manager;
    return manager;
}

void WindowManager::save(int x, int y, int width, int height, bool maximized) {
    if (!maximized && (width <= kTooNarrow || height <= kTooLow))
        return;
    std::string text = "{\n";
    text += "  \"width\": " + std::to_string(width) + ",\n";
    text += "  \"height\": " + std::to_string(height) + ",\n";
    text += "  \"x\": " + std::to_string(x) + ",\n";
    text += "  \"y\": " + std::to_string(y) + ",\n";
    text += std::string("  \"maximized\": ") + (maximized ? "true" : "false") + "\n}\n";
    // A failure costs the user no more than the window's place.
    (void)config_file::replace(path(), text);
}

WindowGeometry WindowManager::load() const {
    WindowGeometry geometry;
    std::string text;
    if (!config_file::read(path(), text))
        return geometry;
    geometry.x = read_int(text, "x", kNoPosition);
    geometry.y = read_int(text, "y", kNoPosition);
    geometry.has_position = geometry.x != kNoPosition && geometry.y != kNoPosition;
    geometry.width = read_int(text, "width", kDefaultWidth);
    geometry.height = read_int(text, "height", kDefaultHeight);
    geometry.maximized = text.find("\"maximized\": true") != std::string::npos;
    if (geometry.width <= kTooNarrow)
        geometry.width = kDefaultWidth;
    if (geometry.height <= kTooLow)
        geometry.height = kDefaultHeight;
    geometry.valid = true;
    return geometry;
}

std::string WindowManager::path() const {
    return config_dir() + "/geometry.json";
}
