#include "picture/plot.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <stdexcept>

#include "frame_picture.h"
#include "kosc/core.h"
#include "picture/canvas.h"
#include "text.h"

using namespace kosc_inspect;

namespace {

constexpr double WIDTH = 1160, HEIGHT = 880, HEIGHT_WITHOUT_FRAME = 560;
constexpr double LEFT = 60, RIGHT = 1130;
constexpr double KHZ = 1000.0;

constexpr colour DARK = {0.05, 0.04, 0.16}; // heat(0)

// From dark to bright, evenly to the eye.
uint32_t heat(double share)
{
    constexpr double STOPS[][3] = {{12, 10, 40},  {60, 25, 110},  {150, 40, 110},
                                   {225, 90, 60}, {250, 180, 50}, {252, 250, 200}};
    constexpr int LAST = 5;
    constexpr double SHADES = 20; // enough to the eye, and fewer make smaller files
    const double place = std::floor(std::clamp(share, 0.0, 1.0) * SHADES) / SHADES * LAST;
    const int stop = std::min(static_cast<int>(place), LAST - 1);
    uint32_t pixel = 0;
    for (int i = 0; i < 3; ++i) {
        const double value = STOPS[stop][i] + (place - stop) * (STOPS[stop + 1][i] - STOPS[stop][i]);
        pixel = pixel << 8 | static_cast<uint32_t>(value);
    }
    return pixel;
}

colour colour_of(const candidate& c)
{
    return c.by_crowd ? BLUE : !c.decoded ? RED : c.second_look_needed ? AMBER : GREEN;
}

struct page {
    canvas* paper;
    const inspection* result;
    const plot_recorder* recorder;
    uint32_t channel;  // counted from 0
    double begin, end; // seconds
};

void draw_waterfall(const page& p)
{
    const timeline& waterfall = p.recorder->waterfall(p.channel);
    const double rate = p.result->sample_rate;
    const panel place = {LEFT, 106, RIGHT - LEFT, 250, p.begin, p.end, p.recorder->lowest() / KHZ, rate / 2 / KHZ};
    const auto& columns = waterfall.columns();
    const double step = p.recorder->waterfall_step(p.channel) / rate;
    const double middle = SPECTRUM_LENGTH / 2.0 / rate; // of a column's block
    if (!columns.empty()) {
        std::vector<float> all;
        for (const auto& column : columns) {
            all.insert(all.end(), column.begin(), column.end());
        }
        std::sort(all.begin(), all.end());
        constexpr double DEEPEST = 70.0, LEAST = 25.0; // dB
        const double high = all.back();
        // Most of the background is dark, unless it is nearly as loud as the rest.
        const double low = std::clamp<double>(all[all.size() * 7 / 10], high - DEEPEST, high - LEAST);
        const size_t rows = columns.front().size();
        std::vector<uint32_t> pixels;
        for (size_t row = rows; row-- > 0;) {
            for (const auto& column : columns) {
                pixels.push_back(heat((column[row] - low) / (high - low)));
            }
        }
        const double first = middle - step / 2, last = first + step * static_cast<double>(columns.size());
        p.paper->clip_to(place);
        const panel inner = {place.x(first), place.top, place.x(last) - place.x(first), place.height, 0, 1, 0, 1};
        p.paper->line(place.left, place.top + place.height / 2, place.left + place.width, place.top + place.height / 2,
                      DARK, place.height);
        p.paper->picture(inner, pixels, static_cast<int>(columns.size()), static_cast<int>(rows));
        p.paper->unclip();
    }
    const double seconds = FRAME_LENGTH / MODEM_RATE;
    p.paper->clip_to(place);
    for (const candidate& c : p.result->candidates) {
        if (c.channel == p.channel + 1 && !c.chance) {
            const double start = static_cast<double>(c.sample) / MODEM_RATE;
            p.paper->rectangle(
                place.x(start), place.y(p.result->band.high_hz / KHZ + 0.25), place.x(start + seconds) - place.x(start),
                place.y(p.result->band.low_hz / KHZ - 0.25) - place.y(p.result->band.high_hz / KHZ + 0.25),
                colour_of(c), 2.5);
        }
    }
    p.paper->unclip();
    p.paper->axes(
        place,
        "Spectrum over time; frames: green decoded at once, amber by the second look, blue with --crowd, red not "
        "decoded",
        "", "kHz");
}

void draw_correlation(const page& p)
{
    const panel place = {LEFT, 400, RIGHT - LEFT, 110, p.begin, p.end, 0, 1};
    const auto& columns = p.recorder->correlation(p.channel).columns();
    const double step = p.recorder->correlation_step(p.channel);
    std::vector<double> xs, ys;
    for (size_t i = 0; i < columns.size(); ++i) {
        const double sample = p.recorder->correlation_start() + (static_cast<double>(i) + 0.5) * step;
        xs.push_back(place.x(sample / MODEM_RATE));
        ys.push_back(place.y(std::min(1.0F, columns[i][0])));
    }
    const double threshold = soundcomm_default_rx_sync_paras().peak_threshold;
    p.paper->clip_to(place);
    p.paper->curve(xs, ys, BLUE, 1.2);
    p.paper->line(place.left, place.y(threshold), place.left + place.width, place.y(threshold), RED, 1.2, true);
    for (const candidate& c : p.result->candidates) {
        if (c.channel == p.channel + 1 && !c.chance) {
            p.paper->dot(place.x(static_cast<double>(c.sample) / MODEM_RATE), place.y(c.correlation), 4.5, colour_of(c),
                         1);
        }
    }
    p.paper->unclip();
    p.paper->axes(place, "Correlation with the pilot, by where a frame would begin; dashed: threshold of the search",
                  "seconds", "");
}

void draw_constellation(const page& p, double left, const std::string& title,
                        const std::vector<std::complex<double>>& values)
{
    constexpr double SIDE = 250, RANGE = 1.8;
    const panel place = {left, 580, SIDE, SIDE, -RANGE, RANGE, -RANGE, RANGE};
    p.paper->line(place.left, place.y(0), place.left + SIDE, place.y(0), FAINT);
    p.paper->line(place.x(0), place.top, place.x(0), place.top + SIDE, FAINT);
    for (const std::complex<double>& value : values) {
        // What lies outside is shown at the edge.
        const double x = std::clamp(value.real(), -RANGE, RANGE), y = std::clamp(value.imag(), -RANGE, RANGE);
        p.paper->dot(place.x(x), place.y(y), 2.2, BLUE, 0.55);
    }
    const double level = std::sqrt(0.5);
    for (const double x : {-level, level}) {
        for (const double y : {-level, level}) {
            p.paper->line(place.x(x) - 5, place.y(y), place.x(x) + 5, place.y(y), RED, 1.5);
            p.paper->line(place.x(x), place.y(y) - 5, place.x(x), place.y(y) + 5, RED, 1.5);
        }
    }
    p.paper->axes(place, title, "", "");
}

void draw_response(const page& p, const frame_picture& picture)
{
    const auto highest = *std::max_element(picture.measured_db.begin(), picture.measured_db.end());
    const auto lowest = *std::min_element(picture.measured_db.begin(), picture.measured_db.end());
    const panel place = {700,
                         580,
                         RIGHT - 700,
                         250,
                         p.result->band.low_hz / KHZ,
                         p.result->band.high_hz / KHZ,
                         std::min(-15.0, std::max(lowest, -40.0) - 1),
                         std::max(6.0, highest + 1)};
    std::vector<double> xs, measured, smoothed;
    const size_t count = picture.measured_db.size();
    for (size_t k = 0; k < count; ++k) {
        const double hz = p.result->band.low_hz + (p.result->band.high_hz - p.result->band.low_hz) *
                                                      static_cast<double>(k) / static_cast<double>(count - 1);
        xs.push_back(place.x(hz / KHZ));
        measured.push_back(place.y(picture.measured_db[k]));
        smoothed.push_back(place.y(picture.smoothed_db[k]));
    }
    p.paper->line(place.left, place.y(0), place.left + place.width, place.y(0), FAINT);
    p.paper->clip_to(place);
    for (size_t k = 0; k < count; ++k) {
        p.paper->dot(xs[k], measured[k], 2.2, GREY, 0.7);
    }
    p.paper->curve(xs, smoothed, BLUE, 2.0);
    p.paper->unclip();
    p.paper->axes(place, "Channel response; dots: each subcarrier, line: smoothed", "kHz", "dB");
}

// The frame to look at closely: of those recognised, the best that failed at once, or else the best.
const candidate* frame_to_show(const inspection& result)
{
    const candidate* best = nullptr;
    for (const candidate& c : result.candidates) {
        const auto rank = [](const candidate& x) {
            return (x.decoded && !x.second_look_needed ? 0.0 : 1.0) + x.correlation;
        };
        if (!c.chance && (best == nullptr || rank(c) > rank(*best))) {
            best = &c;
        }
    }
    return best;
}

void draw_frame(const page& p, const candidate& c)
{
    const frame_picture& picture = c.picture;
    std::string words = text("The frame at %.3f s", static_cast<double>(c.sample) / MODEM_RATE);
    if (c.measured) {
        words += text(": SNR %.1f dB, EVM %.0f %%, drift %+.0f ppm, %s", c.quality.snr_db, 100 * c.quality.evm,
                      c.quality.drift_ppm,
                      c.by_crowd             ? "decoded with --crowd"
                      : !c.decoded           ? "not decoded"
                      : c.second_look_needed ? "decoded by the second look"
                                             : "decoded at once");
    }
    p.paper->text(LEFT, 548, words, 13, align::left, c.decoded && c.second_look_needed ? DARK_AMBER : colour_of(c));
    draw_constellation(p, LEFT, "Symbols, first look", picture.before);
    if (c.measured) {
        draw_constellation(p, LEFT + 310, "Symbols, second look", picture.after);
        draw_response(p, picture);
    }
}

} // namespace

void check_picture_name(const std::string& path)
{
    if (!is_svg(path) && !is_png(path)) {
        throw std::runtime_error("cannot write '" + path + "': its name must end in .svg or .png");
    }
}

void draw(const std::string& path, const std::string& title, const inspection& result, const plot_recorder& recorder)
{
    const candidate* const shown = frame_to_show(result);
    canvas paper(path, WIDTH, shown == nullptr ? HEIGHT_WITHOUT_FRAME : HEIGHT);
    const page p = {&paper,
                    &result,
                    &recorder,
                    shown == nullptr ? 0 : shown->channel - 1,
                    std::min(0.0, shown == nullptr ? 0.0 : static_cast<double>(shown->sample) / MODEM_RATE),
                    std::max(result.seconds, 0.05)};
    paper.text(LEFT, 30,
               title.substr(title.rfind('/') + 1) +
                   text(", channel %u, %u Hz, %.2f s", p.channel + 1, result.sample_rate, result.seconds),
               16);
    paper.paragraph(LEFT, 54, RIGHT - LEFT, result.verdict, 13,
                    result.why == cause::none            ? GREEN
                    : shown != nullptr && shown->decoded ? DARK_AMBER
                                                         : RED);
    draw_waterfall(p);
    draw_correlation(p);
    if (shown != nullptr) {
        draw_frame(p, *shown);
    }
    paper.save();
}
