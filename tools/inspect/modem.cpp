#include "modem.h"

#include <cmath>
#include <stdexcept>

#include "text.h"

namespace kosc_inspect {

kosc::receiver make_receiver(const sound_band& band, kosc::receiver_settings settings)
{
    settings.first_subcarrier = band.first_subcarrier;
    auto made = kosc::receiver::make(settings);
    if (!made) {
        throw std::runtime_error(std::string("cannot set up the receiver: ") + kosc::describe(made.why()));
    }
    return std::move(*made);
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
    constexpr double ULTRASOUND_LOW = 18000.0, ULTRASOUND_HIGH = 20953.125;
    const double octaves = std::log2(band.high_hz / band.low_hz);
    return 10.0 * std::log10(octaves / std::log2(ULTRASOUND_HIGH / ULTRASOUND_LOW));
}

} // namespace kosc_inspect
