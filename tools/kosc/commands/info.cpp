#include <cstdio>
#include <stdexcept>
#include <string>

#include "audio/audio_file.h"
#include "commands/commands.h"
#include "kosc/core.h"
#include "picture/terminal.h"

namespace {

// One letter a symbol, in the order of time.
std::string symbol_order(const frame_struct_t& frame, uint32_t data_pilot_rate)
{
    std::string order;
    for (uint32_t i = 0; i < frame.symbols; ++i) {
        const bool pilot = is_pilot_index(data_pilot_rate, i);
        order += i == frame.sync_pilot_index ? 'S' : pilot ? 'P' : 'D';
    }
    return order;
}

template <typename... Arguments> void print(const char* format, Arguments... arguments)
{
    char line[160];
    std::snprintf(line, sizeof line, format, arguments...);
    write_output(line);
}

} // namespace

int run_info()
{
    const soundcomm_cfg_t& cfg = *soundcomm_default_cfg();
    frame_struct_t frame{};
    if (!init_frame_struct(&cfg, &frame)) {
        throw std::runtime_error("the modem's configuration gives no frame");
    }
    const double spacing = static_cast<double>(MODEM_SAMPLE_RATE) / cfg.ofdm_cfg.symbol_len;
    const uint32_t last_subcarrier = cfg.ofdm_cfg.sc_start_idx + cfg.ofdm_cfg.sc_num - 1;
    const double seconds = static_cast<double>(frame.frame_length) / MODEM_SAMPLE_RATE;

    print("version    %s\n", KOSC_VERSION);
    print("message    %u bytes, %u CRC-16\n", cfg.msg_byte_len, cfg.crc_cfg.group);
    print("audio      %u Hz, 16 bit\n", MODEM_SAMPLE_RATE);
    print("frame      %u samples, %.3f s\n", frame.frame_length, seconds);
    print("symbols    %u of %u samples and a prefix of %u\n", frame.symbols, cfg.ofdm_cfg.symbol_len,
          cfg.ofdm_cfg.cp_len);
    print("layout     %s (S synchronisation pilot, P pilot, D data)\n",
          symbol_order(frame, cfg.pilot_cfg.data_pilot_rate).c_str());
    print("band       %.3f Hz to %.3f Hz, %u subcarriers\n", cfg.ofdm_cfg.sc_start_idx * spacing,
          last_subcarrier * spacing, cfg.ofdm_cfg.sc_num);
    print("bit rate   %.1f bit/s of messages, %.1f bit/s on the air\n", cfg.msg_byte_len * 8 / seconds,
          frame.re_num * 2 / seconds);
    return EXIT_DONE;
}
