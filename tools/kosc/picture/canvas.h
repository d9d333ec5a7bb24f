// A page to draw on: cairo's surface as PNG or SVG, text, and panels with axes.
#ifndef KOSC_TOOL_CANVAS_H
#define KOSC_TOOL_CANVAS_H

#include <cairo.h>

#include <string>
#include <vector>

#include "kosc/kosc.hpp"

struct colour {
    double red, green, blue;
};

constexpr colour INK = {0.15, 0.15, 0.18}, FAINT = {0.82, 0.82, 0.85}, GREY = {0.45, 0.45, 0.5};
constexpr colour BLUE = {0.12, 0.42, 0.75}, RED = {0.82, 0.20, 0.15}, GREEN = {0.10, 0.55, 0.25},
                 DARK_AMBER = {0.66, 0.40, 0.0}, AMBER = {0.95, 0.65, 0.1};

// A rectangle of the page with what its edges stand for.
struct panel {
    double left, top, width, height;
    double x_low, x_high, y_low, y_high;

    double x(double value) const { return left + (value - x_low) / (x_high - x_low) * width; }
    double y(double value) const { return top + height - (value - y_low) / (y_high - y_low) * height; }
};

enum class align { left, middle, right };

class canvas {
public:
    // Writes to `path` when save() is called; SVG when its name ends so, else PNG.
    canvas(const std::string& path, double width, double height);
    canvas(const canvas&) = delete;
    canvas& operator=(const canvas&) = delete;
    // Throws when it cannot, and leaves no part of the file.
    void save();

    void text(double x, double y, const std::string& words, double size, align how = align::left, colour ink = INK);
    // Breaks the words into lines of at most `width`; returns the place below the last.
    double paragraph(double x, double y, double width, const std::string& words, double size, colour ink);
    void line(double x1, double y1, double x2, double y2, colour ink, double width = 1.0, bool dashed = false);
    void curve(const std::vector<double>& xs, const std::vector<double>& ys, colour ink, double width);
    void dot(double x, double y, double radius, colour ink, double opacity);
    void rectangle(double x, double y, double width, double height, colour ink, double line_width);
    // Pixels of 0xRRGGBB, row by row, stretched over a panel.
    void picture(const panel& place, const std::vector<uint32_t>& pixels, int columns, int rows);

    // Frame, title and labelled ticks; units are `x_label` and `y_label`.
    void axes(const panel& place, const std::string& title, const std::string& x_label, const std::string& y_label);
    void clip_to(const panel& place);
    void unclip();

private:
    using surface_ptr = kosc::owner<cairo_surface_t, cairo_surface_destroy>;

    double width_of(const std::string& words, double size);

    std::string path_;
    bool vector_;
    std::string bytes_; // of the file
    surface_ptr surface_;
    kosc::owner<cairo_t, cairo_destroy> context_;
};

// Whether the name ends so, in whatever case.
bool is_svg(const std::string& path);
bool is_png(const std::string& path);

#endif
