// geometry.json as it may come. Whatever it holds, the window is large enough, and a place is one
// only with both coordinates.

#include "config_dir.h"
#include "window_manager.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    make_config_dir("geometry.json");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    write_config_file(data, size);
    WindowManager& manager = WindowManager::instance();
    const WindowGeometry g = manager.load();
    if (!g.valid || g.width < 1000 || g.height < 700)
        std::abort();
    if (g.has_position != (g.x != -1000000 && g.y != -1000000))
        std::abort();
    manager.save(g.x, g.y, g.width, g.height, g.maximized);
    const WindowGeometry again = manager.load();
    if (again.x != g.x || again.y != g.y || again.width != g.width || again.height != g.height ||
        again.maximized != g.maximized)
        std::abort();
    return 0;
}
