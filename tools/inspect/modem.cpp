#include "modem.h"

#include <stdexcept>

namespace kosc_inspect {

const modem_facts& modem()
{
    static const modem_facts facts = [] {
        const soundcomm_cfg_t& cfg = *soundcomm_default_cfg();
        const double rate = soundcomm_default_audio_format().sample_rate;
        const double spacing = rate / cfg.ofdm_cfg.symbol_len;
        return modem_facts{rate, soundcomm_get_frame_length_from_cfg(&cfg), cfg.ofdm_cfg.sc_start_idx * spacing,
                           (cfg.ofdm_cfg.sc_start_idx + cfg.ofdm_cfg.sc_num - 1) * spacing};
    }();
    return facts;
}

context_ptr make_receiver(uint32_t second_look)
{
    context_ptr context{soundcomm_init(soundcomm_default_cfg(), soundcomm_default_cfg())};
    if (!context ||
        !soundcomm_init_receive(context.get(), soundcomm_default_rx_sync_paras(), soundcomm_default_audio_format()) ||
        !soundcomm_config_second_look(context.get(), second_look)) {
        throw std::runtime_error("cannot set up the receiver");
    }
    return context;
}

} // namespace kosc_inspect
