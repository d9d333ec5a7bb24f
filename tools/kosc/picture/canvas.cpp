#include "picture/canvas.h"

#include <cairo-svg.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <stdexcept>

#include "audio/sound_writer.h"
#include "channels.h"
#include "text.h"

namespace {

constexpr double SMALL = 11.0, TITLE = 13.0;

// About five ticks at 1, 2 or 5 times a power of ten.
double tick_step(double range)
{
    const double power = std::pow(10.0, std::floor(std::log10(range / 4)));
    const double steps = range / 4 / power;
    return power * (steps < 1.5 ? 1 : steps < 3.5 ? 2 : steps < 7.5 ? 5 : 10);
}

std::string number(double value) { return kosc_inspect::text("%g", std::round(value * 1e6) / 1e6 + 0.0); }

cairo_status_t append(void* bytes, const unsigned char* data, unsigned int length)
{
    static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
}

} // namespace

bool is_svg(const std::string& path) { return ending_of(path) == ".svg"; }

bool is_png(const std::string& path) { return ending_of(path) == ".png"; }

canvas::canvas(const std::string& path, double width, double height)
    : path_(path), vector_(is_svg(path)),
      surface_(vector_
                   ? cairo_svg_surface_create_for_stream(append, &bytes_, width, height)
                   : cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height))),
      context_(cairo_create(surface_.get()))
{
    cairo_set_source_rgb(context_.get(), 1, 1, 1);
    cairo_paint(context_.get());
    cairo_select_font_face(context_.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
}

void canvas::save()
{
    cairo_status_t status = cairo_status(context_.get());
    if (vector_) {
        cairo_surface_finish(surface_.get());
        status = status == CAIRO_STATUS_SUCCESS ? cairo_surface_status(surface_.get()) : status;
    } else if (status == CAIRO_STATUS_SUCCESS) {
        status = cairo_surface_write_to_png_stream(surface_.get(), append, &bytes_);
    }
    if (status != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error("cannot write '" + path_ + "': " + cairo_status_to_string(status));
    }
    write_file(path_, bytes_);
}

double canvas::width_of(const std::string& words, double size)
{
    cairo_text_extents_t extents;
    cairo_set_font_size(context_.get(), size);
    cairo_text_extents(context_.get(), words.c_str(), &extents);
    return extents.x_advance;
}

void canvas::text(double x, double y, const std::string& words, double size, align how, colour ink)
{
    const double width = width_of(words, size);
    cairo_set_source_rgb(context_.get(), ink.red, ink.green, ink.blue);
    cairo_move_to(context_.get(), how == align::left ? x : how == align::middle ? x - width / 2 : x - width, y);
    cairo_show_text(context_.get(), words.c_str());
}

double canvas::paragraph(double x, double y, double width, const std::string& words, double size, colour ink)
{
    std::istringstream source(words);
    std::string row;
    for (std::string word; source >> word;) {
        const std::string longer = row.empty() ? word : row + " " + word;
        if (!row.empty() && width_of(longer, size) > width) {
            text(x, y, row, size, align::left, ink);
            y += 1.35 * size;
            row = word;
        } else {
            row = longer;
        }
    }
    text(x, y, row, size, align::left, ink);
    return y + 1.35 * size;
}

void canvas::line(double x1, double y1, double x2, double y2, colour ink, double width, bool dashed)
{
    constexpr double DASH = 5.0;
    cairo_set_dash(context_.get(), &DASH, dashed ? 1 : 0, 0);
    curve({x1, x2}, {y1, y2}, ink, width);
    cairo_set_dash(context_.get(), nullptr, 0, 0);
}

void canvas::curve(const std::vector<double>& xs, const std::vector<double>& ys, colour ink, double width)
{
    cairo_set_source_rgb(context_.get(), ink.red, ink.green, ink.blue);
    cairo_set_line_width(context_.get(), width);
    cairo_new_path(context_.get()); // text leaves a point behind
    for (size_t i = 0; i < xs.size(); ++i) {
        cairo_line_to(context_.get(), xs[i], ys[i]);
    }
    cairo_stroke(context_.get());
}

void canvas::dot(double x, double y, double radius, colour ink, double opacity)
{
    cairo_set_source_rgba(context_.get(), ink.red, ink.green, ink.blue, opacity);
    cairo_new_path(context_.get());
    cairo_arc(context_.get(), x, y, radius, 0, 2 * kosc_link::PI);
    cairo_fill(context_.get());
}

void canvas::rectangle(double x, double y, double width, double height, colour ink, double line_width)
{
    cairo_set_source_rgb(context_.get(), ink.red, ink.green, ink.blue);
    cairo_set_line_width(context_.get(), line_width);
    cairo_rectangle(context_.get(), x, y, width, height);
    cairo_stroke(context_.get());
}

void canvas::picture(const panel& place, const std::vector<uint32_t>& pixels, int columns, int rows)
{
    const surface_ptr image{cairo_image_surface_create(CAIRO_FORMAT_RGB24, columns, rows)};
    unsigned char* const data = cairo_image_surface_get_data(image.get());
    const int stride = cairo_image_surface_get_stride(image.get());
    for (int row = 0; data != nullptr && row < rows; ++row) { // in cairo's layout
        std::copy_n(pixels.begin() + ptrdiff_t{columns} * row, columns,
                    reinterpret_cast<uint32_t*>(data + ptrdiff_t{stride} * row));
    }
    cairo_surface_mark_dirty(image.get());
    cairo_save(context_.get());
    cairo_translate(context_.get(), place.left, place.top);
    cairo_scale(context_.get(), place.width / columns, place.height / rows);
    cairo_set_source_surface(context_.get(), image.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(context_.get()), CAIRO_FILTER_NEAREST);
    cairo_pattern_set_extend(cairo_get_source(context_.get()), CAIRO_EXTEND_PAD);
    cairo_rectangle(context_.get(), 0, 0, columns, rows);
    cairo_fill(context_.get());
    cairo_restore(context_.get());
}

void canvas::axes(const panel& place, const std::string& title, const std::string& x_label, const std::string& y_label)
{
    constexpr double TICK = 4.0, GAP = 6.0;
    rectangle(place.left, place.top, place.width, place.height, GREY, 1.0);
    text(place.left, place.top - 8, title, TITLE);
    const double bottom = place.top + place.height;
    const double x_step = tick_step(place.x_high - place.x_low), y_step = tick_step(place.y_high - place.y_low);
    for (double v = std::ceil(place.x_low / x_step) * x_step; v <= place.x_high + 1e-9; v += x_step) {
        line(place.x(v), bottom, place.x(v), bottom + TICK, GREY);
        text(place.x(v), bottom + TICK + SMALL, number(v), SMALL, align::middle, GREY);
    }
    for (double v = std::ceil(place.y_low / y_step) * y_step; v <= place.y_high + 1e-9; v += y_step) {
        line(place.left - TICK, place.y(v), place.left, place.y(v), GREY);
        text(place.left - GAP, place.y(v) + SMALL / 3, number(v), SMALL, align::right, GREY);
    }
    text(place.left + place.width, bottom + TICK + 2.2 * SMALL, x_label, SMALL, align::right, GREY);
    text(place.left + place.width, place.top - 8, y_label, SMALL, align::right, GREY);
}

void canvas::clip_to(const panel& place)
{
    cairo_save(context_.get());
    cairo_rectangle(context_.get(), place.left, place.top, place.width, place.height);
    cairo_clip(context_.get());
}

void canvas::unclip() { cairo_restore(context_.get()); }
