#include "picture/plot.h"

#include <stdexcept>

void check_picture_name(const std::string&)
{
    throw std::runtime_error("this build of kosc draws no pictures: --plot is for other systems");
}

void draw(const std::string&, const std::string&, const kosc_inspect::inspection&, const kosc_inspect::plot_recorder&)
{
}
