#include "curves.h"

#include <cstdio>

namespace kosc_link {

bool draw(const picture& what, const std::vector<drawn_curve>& curves)
{
    std::FILE* const gnuplot = popen("gnuplot", "w");
    if (gnuplot == nullptr) {
        return false;
    }
    std::fprintf(gnuplot,
                 "set terminal svg size 640,400 background 'white'\nset output '%s'\nset title '%s'\n"
                 "set xlabel '%s'\nset ylabel '%s'\nset logscale y\n"
                 "set yrange [%g:1.2]\nset grid\nset key bottom left\nplot ",
                 what.path.c_str(), what.title.c_str(), what.x_title.c_str(), what.y_title.c_str(), what.least);
    const char* separator = "";
    for (const drawn_curve& curve : curves) {
        std::fprintf(gnuplot, "%s'-' using 1:2 with linespoints lw 2%s%s title '%s'", separator,
                     curve.style.empty() ? "" : " ", curve.style.c_str(), curve.title.c_str());
        separator = ", ";
    }
    std::fprintf(gnuplot, "\n");
    for (const drawn_curve& curve : curves) {
        for (const auto& [db, lost] : curve.points) {
            std::fprintf(gnuplot, "%g %s\n", db, lost == 0.0 ? "NaN" : std::to_string(lost).c_str());
        }
        std::fprintf(gnuplot, "e\n");
    }
    return pclose(gnuplot) == 0;
}

} // namespace kosc_link
