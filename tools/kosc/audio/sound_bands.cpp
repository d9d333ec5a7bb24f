#include "audio/sound_bands.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "kosc/kosc.hpp"
#include "text.h"

using kosc_inspect::text;

namespace {

// "telephone, voice"; empty for none.
std::string names_of(const band_list& bands)
{
    std::string names;
    for (const sound_band& band : bands) {
        names += (names.empty() ? "" : ", ") + name_of(band);
    }
    return names;
}

// Those that sound at that rate has, or those that it lacks.
band_list those_that(bool are_within, uint32_t sample_rate, const band_list& bands)
{
    band_list found;
    std::copy_if(bands.begin(), bands.end(), std::back_inserter(found),
                 [=](const sound_band& band) { return holds(sample_rate, band) == are_within; });
    return found;
}

} // namespace

band_list named_bands()
{
    band_list bands;
    while (const sound_band* const band = ko_soundcommu_get_band(static_cast<uint32_t>(bands.size()))) {
        bands.push_back(*band);
    }
    return bands;
}

band_list wide_bands()
{
    // As far apart as there is room between the lowest, voice, and the highest, near-ultrasonic.
    band_list bands;
    for (const char* const name : {"voice", "5203.125", "8390.625", "11578.125", "14765.625", "near-ultrasonic"}) {
        sound_band band;
        if (ko_soundcommu_find_band(name, &band) == 0) {
            bands.push_back(band);
        }
    }
    return bands;
}

void check_apart(const band_list& bands)
{
    for (auto one = bands.begin(); one != bands.end(); ++one) {
        const auto other = std::find_if(std::next(one), bands.end(), [&](const sound_band& each) {
            return each.low_hz <= one->high_hz && one->low_hz <= each.high_hz;
        });
        if (other != bands.end()) {
            throw std::runtime_error("the bands " + name_of(*one) + " and " + name_of(*other) +
                                     " overlap, so that messages cannot be sent in both at once");
        }
    }
}

std::string name_of(const sound_band& band) { return *band.name != '\0' ? band.name : text("%.10g", band.low_hz); }

std::string described(const sound_band& band)
{
    const std::string edges = text("%.0f to %.0f Hz", band.low_hz, band.high_hz);
    return *band.name != '\0' ? std::string("the ") + band.name + " band (" + edges + ")"
                              : std::string("the band from ") + edges;
}

double highest_edge(const band_list& bands)
{
    double highest = 0.0;
    for (const sound_band& band : bands) {
        const double spacing = band.low_hz / band.first_subcarrier;
        highest = std::max(highest, band.high_hz + spacing);
    }
    return highest;
}

bool holds(uint32_t sample_rate, const sound_band& band)
{
    constexpr double HIGHEST_AT_LEAST_RATE = 21000.0, LEAST_RATE = 44100.0; // what converters of music are made for
    constexpr double MODEM_RATE = kosc::SAMPLE_RATE;                        // where no converter is needed
    return sample_rate >= MODEM_RATE || highest_edge({band}) <= sample_rate * HIGHEST_AT_LEAST_RATE / LEAST_RATE;
}

band_list bands_within(uint32_t sample_rate, const band_list& bands)
{
    band_list inside = those_that(true, sample_rate, bands);
    if (inside.empty()) {
        const std::string others = names_of(those_that(true, sample_rate, named_bands()));
        throw std::runtime_error(
            (bands.size() == 1 ? described(bands[0]) + " is" : "the bands " + names_of(bands) + " are") +
            " not in sound at " + std::to_string(sample_rate) + " Hz" +
            (others.empty() ? ", nor is any other with a name" : "; it has " + others));
    }
    return inside;
}

std::string left_out(uint32_t sample_rate, const band_list& bands)
{
    const band_list outside = those_that(false, sample_rate, bands);
    return outside.empty()
               ? ""
               : "left out, because not in sound at " + std::to_string(sample_rate) + " Hz: " + names_of(outside);
}
