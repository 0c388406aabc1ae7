#include "text_cache.h"

#include <cstring>
#include <utility>

namespace {

constexpr uint64_t kFramesKept = 2;

void set_font(PangoLayout* layout, const TextCache::Key& key) {
    PangoFontDescription* font = pango_font_description_new();
    pango_font_description_set_family(font, key.family.c_str());
    pango_font_description_set_absolute_size(font, key.size * PANGO_SCALE);
    if (key.bold)
        pango_font_description_set_weight(font, PANGO_WEIGHT_BOLD);
    pango_layout_set_font_description(layout, font);
    pango_font_description_free(font);
}

// A path may hold bytes that are no UTF-8, which Pango would complain about on standard error.
void set_text(PangoLayout* layout, const std::string& text) {
    if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) {
        pango_layout_set_text(layout, text.c_str(), -1);
        return;
    }
    char* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
    pango_layout_set_text(layout, valid, -1);
    g_free(valid);
}

void set_lines(PangoLayout* layout, const TextCache::Key& key) {
    using Lines = TextCache::Lines;
    const bool wrapped = key.lines == Lines::Wrapped;
    // A file name may hold a line end; it must not spill into the row below.
    pango_layout_set_single_paragraph_mode(layout, !wrapped);
    pango_layout_set_width(layout, key.lines == Lines::Single ? -1 : key.width);
    pango_layout_set_ellipsize(layout, key.lines == Lines::Middle ? PANGO_ELLIPSIZE_MIDDLE
                                                                  : PANGO_ELLIPSIZE_NONE);
    pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
    if (!wrapped) {
        pango_layout_set_attributes(layout, nullptr);
        return;
    }
    // A path broken inside a word must not seem to hold a hyphen.
    PangoAttrList* attributes = pango_attr_list_new();
    pango_attr_list_insert(attributes, pango_attr_insert_hyphens_new(FALSE));
    pango_layout_set_attributes(layout, attributes);
    pango_attr_list_unref(attributes);
}

}  // namespace

TextCache::~TextCache() {
    for (const auto& [key, entry] : m_entries)
        g_object_unref(entry.layout);
    for (PangoLayout* layout : m_spare)
        g_object_unref(layout);
    if (m_context)
        g_object_unref(m_context);
    if (m_options)
        cairo_font_options_destroy(m_options);
}

// Any update of a context lays out all its texts anew, so it is told of changes alone.
void TextCache::begin_frame(cairo_t* cr) {
    m_painting = cr;
    ++m_frame;
    cairo_matrix_t matrix;
    cairo_get_matrix(cr, &matrix);
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_surface_get_font_options(cairo_get_target(cr), options);
    if (!m_context) {
        m_context = pango_cairo_create_context(cr);
    } else if (std::memcmp(&matrix, &m_matrix, sizeof matrix) != 0 ||
               !cairo_font_options_equal(options, m_options)) {
        pango_cairo_update_context(cr, m_context);
    }
    m_matrix = matrix;
    if (m_options)
        cairo_font_options_destroy(m_options);
    m_options = options;
}

void TextCache::end_frame() {
    m_painting = nullptr;
    for (auto it = m_entries.begin(); it != m_entries.end();) {
        if (it->second.frame + kFramesKept <= m_frame) {
            m_spare.push_back(it->second.layout);
            it = m_entries.erase(it);
        } else {
            ++it;
        }
    }
}

PangoLayout* TextCache::layout(cairo_t* cr, Key key) {
    if (cr != m_painting)
        begin_frame(cr);
    if (key.lines == Lines::Single)
        key.width = 0;
    const auto [it, is_new] = m_entries.try_emplace(std::move(key));
    Entry& entry = it->second;
    entry.frame = m_frame;
    if (!is_new)
        return entry.layout;
    if (m_spare.empty()) {
        entry.layout = pango_layout_new(m_context);
    } else {
        entry.layout = m_spare.back();
        m_spare.pop_back();
    }
    set_font(entry.layout, it->first);
    set_lines(entry.layout, it->first);
    set_text(entry.layout, it->first.text);
    return entry.layout;
}
