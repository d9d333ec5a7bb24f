#include "modem.h"

#include <cmath>

#include "text.h"

namespace kosc_inspect {

const sound_band& default_band()
{
    static const sound_band band = [] {
        sound_band found{};
        ko_soundcommu_find_band("near-ultrasonic", &found);
        return found;
    }();
    return band;
}

kosc::receiver make_receiver(const sound_band& band, kosc::receiver_settings settings)
{
    settings.first_subcarrier = band.first_subcarrier;
    return value_of(kosc::receiver::make(settings), "cannot set up the receiver");
}

uint32_t combining_of(uint32_t channels, bool wanted)
{
    constexpr uint32_t BOTH = 2;
    return !wanted ? KOSC_COMBINING_OFF : channels == BOTH ? KOSC_COMBINING_TOGETHER : KOSC_COMBINING_EACH;
}

void check(kosc::error e)
{
    if (e != kosc::error::none) {
        throw std::runtime_error(kosc::describe(e));
    }
}

std::string edges_khz(const sound_band& band, const char* between)
{
    return text("%.2g%s%.2g", band.low_hz / 1000.0, between, band.high_hz / 1000.0);
}

double room_over_ultrasound_db(const sound_band& band)
{
    const auto octaves = [](const sound_band& each) { return std::log2(each.high_hz / each.low_hz); };
    return 10.0 * std::log10(octaves(band) / octaves(default_band()));
}

} // namespace kosc_inspect
