#include "curves.h"

#include <cmath>
#include <cstdio>

namespace kosc_link {

bool draw(const curve_plot& plot)
{
    std::FILE* const gnuplot = popen("gnuplot", "w");
    if (gnuplot == nullptr) {
        return false;
    }
    std::fprintf(gnuplot,
                 "set terminal svg size 640,400 background 'white'\nset output '%s'\nset title '%s'\n"
                 "set xlabel '%s'\nset ylabel '%s'\nset grid\n%s\nplot ",
                 plot.path.c_str(), plot.title.c_str(), plot.x_label.c_str(), plot.y_label.c_str(),
                 plot.settings.c_str());
    for (const curve_line& line : plot.lines) {
        std::fprintf(gnuplot, "%s'-' using 1:2 with linespoints lw 2%s title '%s'", &line == &plot.lines[0] ? "" : ", ",
                     line.style.c_str(), line.title.c_str());
    }
    std::fprintf(gnuplot, "\n");
    for (const curve_line& line : plot.lines) {
        for (const auto& [x, y] : line.points) {
            std::fprintf(gnuplot, std::isnan(y) ? "%g NaN\n" : "%g %f\n", x, y);
        }
        std::fprintf(gnuplot, "e\n");
    }
    return pclose(gnuplot) == 0;
}

} // namespace kosc_link
