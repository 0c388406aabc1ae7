// Where the main window was, remembered in a small file of its own, "geometry.json". Interface
// thread only. No failure is ever reported: a missing or unreadable file is geometry that is not
// valid, and a failed save leaves the old file.

#pragma once

#include <string>

struct WindowGeometry {
    int width = 0;  // pixels
    int height = 0;
    int x = 0;
    int y = 0;
    bool has_position = false;  // both x and y stand in the file
    bool maximized = false;
    bool valid = false;  // the file could be read
};

class WindowManager {
  public:
    static WindowManager& instance();

    // Writes the file. A window that is not maximised and smaller than one can be is not worth
    // keeping: it is about to grow.
    void save(int x, int y, int width, int height, bool maximized);
    // A width or height that is too small, or no number, comes back as the default.
    [[nodiscard]] WindowGeometry load() const;

  private:
    WindowManager() = default;
    [[nodiscard]] std::string path() const;
};
