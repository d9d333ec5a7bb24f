// Curves as an SVG, by gnuplot, which must be installed.
#ifndef KOSC_LINK_CURVES_H
#define KOSC_LINK_CURVES_H

#include <string>
#include <utility>
#include <vector>

namespace kosc_link {

struct curve_line {
    std::string title;                             // empty: none in the key
    std::string style;                             // gnuplot's, behind the line's width
    std::vector<std::pair<double, double>> points; // a NaN leaves a gap
};

struct curve_plot {
    std::string path;
    std::string title;
    std::string x_label;
    std::string y_label;
    std::string settings; // more lines for gnuplot: ranges, scales, the key's place
    std::vector<curve_line> lines;
};

// False when gnuplot cannot be started or fails.
bool draw(const curve_plot& plot);

} // namespace kosc_link

#endif
