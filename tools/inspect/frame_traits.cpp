#include "frame_traits.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "channels.h"
#include "frame_band.h"
#include "modem.h"
#include "power_spectrum.h"

namespace kosc_inspect {
namespace {

struct frame_view {
    const soundcomm_paras_t& paras;
    const double* samples;
    band_signal band;
    uint32_t length, step; // of the frame, from symbol to symbol

    double hz(uint32_t subcarrier) const // counted from the band's first
    {
        return (paras.cfg.ofdm_cfg.sc_start_idx + subcarrier) * MODEM_RATE / paras.cfg.ofdm_cfg.symbol_len;
    }
    size_t reference(uint32_t symbol) const // where the FFT window of a symbol begins
    {
        return size_t{symbol} * step + paras.cfg.ofdm_cfg.cp_len - paras.cfg.fade_cfg.len;
    }
    bool is_pilot(size_t symbol) const
    {
        return is_pilot_index(paras.cfg.pilot_cfg.data_pilot_rate, static_cast<uint32_t>(symbol));
    }
    uint32_t pilots_apart() const { return (paras.cfg.pilot_cfg.data_pilot_rate + 1) * step; }
    double energy(size_t start, size_t count) const { return energy_of(band, start, count); }
};

void measure_levels(const frame_view& frame, frame_traits* traits)
{
    std::vector<double>& levels = traits->symbol_levels;
    double power = 0.0;
    for (uint32_t i = 0; i < frame.paras.frame.symbols; ++i) {
        std::vector<double> symbol(SPECTRUM_LENGTH);
        const double* const first = frame.samples + size_t{i} * frame.step + frame.paras.cfg.ofdm_cfg.cp_len;
        std::transform(first, first + SPECTRUM_LENGTH, symbol.begin(),
                       [](double x) { return x / kosc_link::FULL_SCALE; });
        levels.push_back(
            level_db(power_spectrum(symbol.data()), frame.hz(0), frame.hz(frame.paras.cfg.ofdm_cfg.sc_num - 1)));
        power += std::pow(10.0, levels.back() / 10.0) / frame.paras.frame.symbols;
    }
    traits->level_db = to_db(power);
    double rise = 0.0, fall = 0.0; // the largest, each between any two symbols in that order
    double lowest = levels.front(), highest = levels.front();
    for (size_t i = 0; i < levels.size(); ++i) {
        lowest = std::min(lowest, levels[i]);
        highest = std::max(highest, levels[i]);
        rise = std::max(rise, levels[i] - lowest);
        fall = std::max(fall, highest - levels[i]);
        if (i >= 2) {
            traits->step_db = std::max(traits->step_db, std::fabs(levels[i] - levels[i - 2]));
        }
    }
    traits->range_db = highest - lowest;
    traits->swing_db = std::min(rise, fall);
    traits->faint_symbols = static_cast<size_t>(
        std::count_if(levels.begin(), levels.end(), [&](double x) { return x < (lowest + highest) / 2; }));
    const size_t third = levels.size() / 3;
    for (size_t i = 0; i < third; ++i) {
        traits->fall_db += (levels[i] - levels[levels.size() - 1 - i]) / static_cast<double>(third);
    }
}

// Correlates the frame's band with itself.
void find_echo(const frame_view& frame, frame_traits* traits)
{
    constexpr uint32_t NEAREST = 40; // closer echoes only tilt the band
    const ofdm_cfg& ofdm = frame.paras.cfg.ofdm_cfg;
    band_signal powers(frame.samples, frame.samples + frame.length);
    powers.resize(BAND_SAMPLES);
    transform(&powers, true);
    const double scale = static_cast<double>(BAND_SAMPLES) / ofdm.symbol_len;
    for (uint32_t k = 0; k < BAND_SAMPLES; ++k) {
        const double inside = (k / scale - ofdm.sc_start_idx + 0.5) / ofdm.sc_num;
        const double taper = inside > 0.0 && inside < 1.0 ? 0.5 - 0.5 * std::cos(2 * kosc_link::PI * inside) : 0.0;
        powers[k] = taper * std::norm(powers[k]);
    }
    transform(&powers, false);
    const auto close_to = [](uint32_t lag, uint32_t other) { return lag + NEAREST > other && lag < other + NEAREST; };
    // Prefixes repeat their symbols' ends, and the later pilots each other: less than a fifth of the frame in either
    // case.
    constexpr double OWN = 0.15;
    for (uint32_t lag = NEAREST; std::abs(powers[0]) > 0.0 && lag < BAND_SAMPLES - frame.length; ++lag) {
        const double own = close_to(lag, ofdm.symbol_len) || close_to(lag, frame.pilots_apart()) ? OWN : 0.0;
        const double like = std::abs(powers[lag]) / std::abs(powers[0]) - own;
        if (like > traits->echo) {
            traits->echo = like;
            traits->echo_delay = lag;
        }
    }
}

// One pilot symbol: how alike the frame is to it at every place, and where it should be.
struct pilot_place {
    std::vector<double> alike;
    ptrdiff_t expected;

    double at(ptrdiff_t shift) const
    {
        const ptrdiff_t place = expected + shift;
        return place >= 0 && place < static_cast<ptrdiff_t>(alike.size()) ? alike[static_cast<size_t>(place)] : 0.0;
    }
    // The shift within `reach` of `centre` where it is most alike.
    ptrdiff_t best(ptrdiff_t centre, ptrdiff_t reach) const
    {
        ptrdiff_t found = centre;
        for (ptrdiff_t shift = centre - reach; shift <= centre + reach; ++shift) {
            found = at(shift) > at(found) ? shift : found;
        }
        return found;
    }
};

constexpr ptrdiff_t DRIFTED = 100; // a chirp moved in frequency looks moved in time

std::vector<pilot_place> find_pilots(const frame_view& frame)
{
    const ofdm_cfg& ofdm = frame.paras.cfg.ofdm_cfg;
    const auto alike = [&](const pilot_t& pilot) {
        return likeness(frame.band, band_of(ofdm, pilot.reference, ofdm.symbol_len), ofdm.symbol_len);
    };
    const std::vector<double> sync = alike(frame.paras.sync_pilot), later = alike(frame.paras.estimating_pilot);
    std::vector<pilot_place> pilots;
    for (uint32_t i = 0; i < frame.paras.frame.symbols; ++i) {
        if (frame.is_pilot(i)) {
            pilots.push_back({pilots.empty() ? sync : later, static_cast<ptrdiff_t>(frame.reference(i))});
        }
    }
    return pilots;
}

// A later pilot that is missing at its place and clearly elsewhere, while the one before it is not there, too.
double slip_of(const std::vector<pilot_place>& pilots)
{
    constexpr ptrdiff_t REACH = 1100;
    constexpr double CLEAR = 0.5, MISSING = 0.6;
    for (size_t i = 1; i < pilots.size(); ++i) {
        const ptrdiff_t before = pilots[i - 1].best(0, REACH), now = pilots[i].best(0, REACH);
        const double seen = pilots[i].at(now), earlier = pilots[i - 1].at(before);
        const auto absent = [&](const pilot_place& pilot, ptrdiff_t shift, double there) {
            return pilot.at(pilot.best(shift, DRIFTED)) < MISSING * there;
        };
        if (seen > CLEAR && earlier > CLEAR && std::abs(now - before) > 2 * DRIFTED &&
            absent(pilots[i], before, seen) && absent(pilots[i - 1], now, earlier)) {
            return static_cast<double>(now - before);
        }
    }
    return 0.0;
}

// Another frame's pilots among this one's symbols.
void find_second_sender(const frame_view& frame, const std::vector<pilot_place>& pilots, frame_traits* traits)
{
    constexpr ptrdiff_t STEP = 16, NEAREST = 320;
    const auto size = static_cast<ptrdiff_t>(frame.paras.cfg.ofdm_cfg.symbol_len);
    const auto apart = static_cast<ptrdiff_t>(frame.pilots_apart());
    const auto length = static_cast<ptrdiff_t>(frame.length);
    for (ptrdiff_t delay = -length; delay < length; delay += STEP) {
        double sum = 0.0, count = 0.0;
        for (size_t i = 0; i < pilots.size(); ++i) {
            const ptrdiff_t place = pilots[i].expected + delay;
            const bool other_pilot = i > 0 && std::abs(std::abs(delay) - apart) < 4 * DRIFTED;
            if (place >= 0 && place + size <= length && !other_pilot) {
                sum += pilots[i].at(pilots[i].best(delay, STEP));
                ++count;
            }
        }
        // One pilot alone is sooner alike by chance than three.
        const double seen = count > 0.0 ? sum / count - 0.16 / count : 0.0;
        if (std::abs(delay) >= NEAREST && seen > traits->second_sender) {
            traits->second_sender = seen;
            traits->second_delay = static_cast<double>(delay);
        }
    }
}

band_signal spectrum_of(const frame_view& frame, uint32_t symbol)
{
    return subcarriers_of(frame.paras.cfg.ofdm_cfg, frame.samples + frame.reference(symbol));
}

// Symbols whose subcarriers' amplitudes are far from those of most symbols. Noise and echoes meet all alike.
size_t count_uneven(const frame_view& frame)
{
    constexpr double FAR = 5.0;    // times the median distance, in power
    constexpr double LEAST = 0.03; // of the power
    const uint32_t symbols = frame.paras.frame.symbols;
    std::vector<band_signal> spectra;
    for (uint32_t i = 0; i < symbols; ++i) {
        spectra.push_back(spectrum_of(frame, i));
    }
    std::vector<double> distances(symbols);
    double power = 0.0;
    for (uint32_t k = 0; k < frame.paras.cfg.ofdm_cfg.sc_num; ++k) {
        std::vector<double> amplitudes;
        for (const band_signal& spectrum : spectra) {
            amplitudes.push_back(std::abs(spectrum[k]));
        }
        const double usual = median(amplitudes);
        power += usual * usual;
        for (uint32_t i = 0; i < symbols; ++i) {
            distances[i] += (amplitudes[i] - usual) * (amplitudes[i] - usual);
        }
    }
    const double far = std::max(FAR * median(distances), LEAST * power);
    return static_cast<size_t>(
        std::count_if(distances.begin(), distances.end(), [&](double distance) { return distance > far; }));
}

// Where the pilots' subcarriers end, if they end as at a low-pass filter.
// Of the rest, no subcarrier's level is farther from the mean than `uneven_db`.
std::optional<double> end_of_band(const frame_view& frame, double uneven_db)
{
    constexpr double CLIFF_DB = 18.0;
    constexpr uint32_t EDGE = 6, SLOPE = 4; // subcarriers
    const ofdm_cfg& ofdm = frame.paras.cfg.ofdm_cfg;
    std::vector<double> levels(ofdm.sc_num);
    for (uint32_t i = 0; i < frame.paras.frame.symbols; ++i) {
        const band_signal symbol = spectrum_of(frame, i);
        for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
            levels[k] += to_db(std::norm(symbol[k])) / frame.paras.frame.symbols;
        }
    }
    double deepest = CLIFF_DB;
    std::optional<double> edge;
    for (uint32_t k = EDGE; k + SLOPE + EDGE <= ofdm.sc_num; ++k) {
        const double drop = mean(levels, k - EDGE, k) - mean(levels, k + SLOPE, k + SLOPE + EDGE);
        const bool even = std::all_of(levels.begin(), levels.begin() + k - SLOPE,
                                      [&](double level) { return std::fabs(level - mean(levels, 0, k)) < uneven_db; });
        if (drop > deepest && even && mean(levels, 0, k) - mean(levels, k + SLOPE, ofdm.sc_num) > CLIFF_DB) {
            deepest = drop;
            edge = frame.hz(k);
        }
    }
    return edge;
}

// Samples that repeat what was shortly before, as players do that run out of sound. Of the frame's own, prefixes repeat
// the ends of symbols, and symbols may repeat whole others.
size_t count_repeated(const frame_view& frame)
{
    constexpr size_t BLOCK = 16, LEAST_RANGE = 16;
    const uint32_t symbol = frame.paras.cfg.ofdm_cfg.symbol_len;
    const auto own = [&](size_t lag) {
        const size_t rest = lag % frame.step;
        return rest == 0 || rest == symbol || rest == frame.step - symbol;
    };
    std::unordered_map<uint64_t, size_t> seen;
    size_t repeated = 0;
    for (size_t i = 0; i + BLOCK <= frame.length; ++i) {
        uint64_t key = 0;
        for (size_t k = 0; k < BLOCK; ++k) {
            key = (key ^ static_cast<uint64_t>(std::llround(frame.samples[i + k]) + 65536)) * 0x9E3779B97F4A7C15U;
            key ^= key >> 29U;
        }
        const auto [low, high] = std::minmax_element(frame.samples + i, frame.samples + i + BLOCK);
        const auto [place, is_new] = seen.try_emplace(key, i);
        repeated += !is_new && *high - *low > LEAST_RANGE && !own(i - place->second) ? 1 : 0;
        place->second = i;
    }
    return repeated;
}

// Faded repetitions, in which the band repeats itself up to a factor. A pilot of several sweeps does so itself.
size_t count_concealed(const frame_view& frame)
{
    constexpr size_t WINDOW = 160, LAG_STEP = 4, SHORTEST = 96, LONGEST = 960;
    constexpr double SAME = 0.985;
    constexpr double AUDIBLE = 0.01; // of the mean power
    const double least = AUDIBLE * frame.energy(0, frame.length) * WINDOW / frame.length;
    size_t concealed = 0;
    for (size_t start = 0; start + WINDOW + LONGEST < frame.length; start += WINDOW) {
        bool found = false;
        const bool audible = frame.energy(start, WINDOW) >= least && !frame.is_pilot(start / frame.step);
        for (size_t lag = SHORTEST; audible && lag < LONGEST && !found; lag += LAG_STEP) {
            found = !frame.is_pilot((start + lag + WINDOW - 1) / frame.step) &&
                    std::abs(self_likeness(frame.band, start, WINDOW, lag)) > SAME;
        }
        concealed += found ? WINDOW : 0;
    }
    return concealed;
}

// Fades between symbols are shorter than any gap. Only the frame's own sound ends one: where the frame breaks off, what
// goes on is the background, now and then a little louder.
size_t longest_gap(const frame_view& frame)
{
    constexpr size_t BLOCK = 32;
    constexpr double FAINT = 0.004; // of the median power
    std::vector<double> powers;
    for (size_t start = 0; start + BLOCK <= frame.length; start += BLOCK) {
        powers.push_back(frame.energy(start, BLOCK));
    }
    constexpr double SOUNDS = 0.1;
    const double usual = median(powers), limit = FAINT * usual;
    size_t longest = 0, run = 0;
    bool sounded = false;
    for (const double power : powers) {
        if (power < limit) {
            ++run;
        } else if (power > SOUNDS * usual) {
            longest = sounded ? std::max(longest, run) : longest;
            sounded = true;
            run = 0;
        }
    }
    return longest * BLOCK;
}

// Whether a symbol's prefix and end belong together elsewhere: both moved, or one of them.
bool is_displaced(const frame_view& frame, size_t start, size_t count)
{
    constexpr ptrdiff_t REACH = 1000, NEAREST = 100, STEP = 4;
    constexpr double SAME = 0.9;
    const auto end = static_cast<ptrdiff_t>(frame.length);
    const auto apart = static_cast<ptrdiff_t>(frame.paras.cfg.ofdm_cfg.symbol_len);
    const auto place = static_cast<ptrdiff_t>(start), length = static_cast<ptrdiff_t>(count);
    const auto same = [&](ptrdiff_t from, ptrdiff_t lag) {
        return from >= 0 && lag > length && from + lag + length <= end &&
               std::abs(self_likeness(frame.band, static_cast<size_t>(from), count, static_cast<size_t>(lag))) > SAME;
    };
    for (ptrdiff_t shift = -REACH; shift <= REACH; shift += STEP) {
        if (std::abs(shift) >= NEAREST &&
            (same(place + shift, apart) || same(place + shift, apart - shift) || same(place, apart + shift))) {
            return true;
        }
    }
    return false;
}

// A prefix and what it repeats differ by a phase that drift makes the same in all symbols; a lost sample does not.
void compare_prefixes(const frame_view& frame, frame_traits* traits)
{
    constexpr double CLEAR = 0.7, APART = 1.2;
    const ofdm_cfg& ofdm = frame.paras.cfg.ofdm_cfg;
    const uint32_t margin = frame.paras.cfg.fade_cfg.len / 2;
    constexpr double LOST = 0.6;
    const size_t count = ofdm.cp_len - 2 * margin;
    std::vector<double> alike;
    band_signal likenesses;
    for (uint32_t i = 0; i < frame.paras.frame.symbols; ++i) {
        const size_t start = size_t{i} * frame.step + margin;
        likenesses.push_back(self_likeness(frame.band, start, count, ofdm.symbol_len));
        alike.push_back(std::abs(likenesses.back()));
        traits->displaced += alike.back() < LOST && is_displaced(frame, start, count) ? 1 : 0;
    }
    traits->prefixes = median(alike);
    // The phase that most symbols share.
    size_t most = 0, clear = 0;
    for (size_t i = 0; i < alike.size(); ++i) {
        size_t near = 0;
        for (size_t k = 0; k < alike.size(); ++k) {
            near +=
                alike[k] > CLEAR && std::fabs(std::arg(likenesses[k] * std::conj(likenesses[i]))) < APART / 2 ? 1 : 0;
        }
        most = std::max(most, near);
        clear += alike[i] > CLEAR ? 1 : 0;
    }
    traits->jumps = clear - std::min(most, clear);
}

frame_view view_of(const soundcomm_paras_t& paras, const double* samples)
{
    const uint32_t length = std::min(paras.frame.frame_length, BAND_SAMPLES);
    return {paras, samples, band_of(paras.cfg.ofdm_cfg, samples, length), length,
            paras.cfg.ofdm_cfg.symbol_len + paras.cfg.ofdm_cfg.cp_len};
}

} // namespace

std::optional<double> end_of_even_band(const soundcomm_paras_t& paras, const double* samples)
{
    constexpr double UNEVEN_DB = 14.0;
    return end_of_band(view_of(paras, samples), UNEVEN_DB);
}

frame_traits traits_of(const soundcomm_paras_t& paras, const double* samples)
{
    const frame_view frame = view_of(paras, samples);
    frame_traits traits;
    measure_levels(frame, &traits);
    find_echo(frame, &traits);
    const std::vector<pilot_place> pilots = find_pilots(frame);
    for (size_t i = 0; i < pilots.size(); ++i) {
        const double seen = pilots[i].at(pilots[i].best(0, DRIFTED));
        traits.pilots += seen / static_cast<double>(pilots.size());
        traits.later_pilots = i > 0 ? std::max(traits.later_pilots, seen) : 0.0;
    }
    traits.slip = slip_of(pilots);
    find_second_sender(frame, pilots, &traits);
    traits.missing_above = end_of_band(frame, HUGE_VAL);
    traits.uneven_symbols = count_uneven(frame);
    traits.repeated = std::max(count_repeated(frame), count_concealed(frame));
    traits.gap = longest_gap(frame);
    compare_prefixes(frame, &traits);
    return traits;
}

} // namespace kosc_inspect
