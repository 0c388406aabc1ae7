// Texts laid out by Pango, kept from frame to frame: most of a frame's texts stood in the last one,
// and laying out costs several times what painting does.
//
// Interface thread only. No call fails: bytes that are no UTF-8 are laid out as U+FFFD.

#pragma once

#include <cstdint>
#include <map>
#include <pango/pangocairo.h>
#include <string>
#include <vector>

class TextCache {
  public:
    // How a text is broken into lines.
    enum class Lines {
        Single,  // line ends are painted as signs
        Middle,  // the same, shortened in the middle to the width
        Wrapped  // as many as the width demands
    };
    struct Key {
        std::string text;
        std::string family;
        double size = 0;  // logical units
        bool bold = false;
        Lines lines = Lines::Single;
        int width = 0;  // Pango units; of no meaning to Single

        auto operator<=>(const Key&) const = default;
    };

    TextCache() = default;
    ~TextCache();
    TextCache(const TextCache&) = delete;
    TextCache& operator=(const TextCache&) = delete;

    // Laid out for cr, at the scale that it has at the first call of a frame. The layout stays the
    // cache's and lives to the frame's end.
    PangoLayout* layout(cairo_t* cr, Key key);

    // Drops what neither this frame used nor the one before. The next call begins another frame,
    // even with a context at the same address.
    void end_frame();

    size_t size() const { return m_entries.size(); }

  private:
    void begin_frame(cairo_t* cr);

    struct Entry {
        PangoLayout* layout = nullptr;
        uint64_t frame = 0;
    };
    PangoContext* m_context = nullptr;
    cairo_matrix_t m_matrix{};  // what m_context was made or updated for
    cairo_font_options_t* m_options = nullptr;
    cairo_t* m_painting = nullptr;  // the frame's, not owned; null between frames
    std::map<Key, Entry> m_entries;
    std::vector<PangoLayout*> m_spare;  // making one anew costs more than setting an old one anew
    uint64_t m_frame = 0;
};
