// What a frame has painted as text: each layout that was shown, with its place, size and colour. To
// be read after AppTest::frame().

#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace test_env {

struct PaintedText {
    std::string text;
    double x = 0;       // logical units; the left edge
    double y = 0;       // logical units; the vertical centre
    double width = 0;   // logical units, as laid out
    double size = 0;    // logical units
    std::string color;  // "#RRGGBB"
    double alpha = 0;
    std::string family;
    bool cut = false;  // does not fit and is shown in part
};

// Those shown since forget_painted(), in painting order.
const std::vector<PaintedText>& painted_texts();
void forget_painted();
// The last one with this text, or null.
const PaintedText* painted_text(const std::string& text);

// How many texts the process has given to a layout.
size_t texts_laid_out();

// Makes every text that is painted from now on that much longer: 1.4 for a language that needs
// 40 % more room than English. 1 ends it.
void stretch_texts(double factor);

}  // namespace test_env
