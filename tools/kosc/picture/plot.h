// The picture of an inspection: waterfall, correlation, constellations and channel on one page.
#ifndef KOSC_TOOL_PLOT_H
#define KOSC_TOOL_PLOT_H

#include <string>

#include "inspection.h"
#include "plot_recorder.h"

// Throws when the name does not end in .svg or .png.
void check_picture_name(const std::string& path);

// Draws the channel of the frame that was recognised best, or the first, into `path`. Throws when that fails.
void draw(const std::string& path, const std::string& title, const kosc_inspect::inspection& result,
          const kosc_inspect::plot_recorder& recorder);

#endif
