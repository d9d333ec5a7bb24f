#include "modem.h"

#include <cmath>
#include <stdexcept>

#include "text.h"

namespace kosc_inspect {

kosc::context_ptr make_receiver(const sound_band& band, uint32_t second_look, uint32_t crowd)
{
    soundcomm_cfg_t cfg;
    kosc::context_ptr context;
    if (soundcomm_cfg_for_band(band.first_subcarrier, &cfg)) {
        context = kosc::make_receiving_context(second_look, cfg, crowd);
    }
    if (!context) {
        throw std::runtime_error("cannot set up the receiver");
    }
    return context;
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
