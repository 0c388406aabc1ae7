// What a frame has painted as text: each layout that was shown, with its place, size and colour. To
// be read after AppTest::frame().

#pragma once

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
};

// Those shown since forget_painted(), in painting order.
const std::vector<PaintedText>& painted_texts();
void forget_painted();
// The last one with this text, or null.
const PaintedText* painted_text(const std::string& text);

}  // namespace test_env
