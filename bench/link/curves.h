// What the benchmarks draw: shares of what is lost against a ratio in decibels.
#ifndef KOSC_LINK_CURVES_H
#define KOSC_LINK_CURVES_H

#include <string>
#include <utility>
#include <vector>

namespace kosc_link {

struct drawn_curve {
    std::string title;
    std::string style;                             // gnuplot's, such as "dt 2 lc 1"; may be empty
    std::vector<std::pair<double, double>> points; // dB, share lost; none lost is left out, as a logarithm must
};

struct picture {
    std::string path; // of the SVG
    std::string title;
    std::string x_title;
    std::string y_title;
    double least; // share at the lower end
};

// An SVG of the curves by gnuplot, which must be installed; false when that failed.
bool draw(const picture& what, const std::vector<drawn_curve>& curves);

} // namespace kosc_link

#endif
