#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

#include "audio/audio_file.h"
#include "commands/commands.h"
#include "commands/received_text.h"
#include "kosc/core.h"
#include "picture/terminal.h"
#include "text.h"

using kosc_inspect::text;

namespace {

constexpr uint32_t SAMPLE_BITS = 16;

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

// What both forms tell beyond the configuration.
struct facts {
    frame_struct_t frame;
    std::string layout;
    double seconds, message_rate, air_rate;
};

facts facts_of(const soundcomm_cfg_t& cfg)
{
    constexpr uint32_t BITS_A_BYTE = 8, BITS_A_SYMBOL = 2; // of a message, of a subcarrier
    facts f{};
    if (!init_frame_struct(&cfg, &f.frame)) {
        throw std::runtime_error("the modem's configuration gives no frame");
    }
    f.layout = symbol_order(f.frame, cfg.pilot_cfg.data_pilot_rate);
    f.seconds = static_cast<double>(f.frame.frame_length) / kosc::SAMPLE_RATE;
    f.message_rate = cfg.msg_byte_len * BITS_A_BYTE / f.seconds;
    f.air_rate = f.frame.re_num * BITS_A_SYMBOL / f.seconds;
    return f;
}

std::string as_json(const soundcomm_cfg_t& cfg, const facts& f)
{
    nlohmann::ordered_json object;
    object["version"] = KOSC_VERSION;
    object["message_bytes"] = cfg.msg_byte_len;
    object["crcs"] = cfg.crc_cfg.group;
    object["sample_rate"] = kosc::SAMPLE_RATE;
    object["bits"] = SAMPLE_BITS;
    object["frame_samples"] = f.frame.frame_length;
    object["frame_seconds"] = f.seconds;
    object["symbols"] = f.frame.symbols;
    object["symbol_samples"] = cfg.ofdm_cfg.symbol_len;
    object["prefix_samples"] = cfg.ofdm_cfg.cp_len;
    object["layout"] = f.layout;
    object["band_low_hz"] = default_band().low_hz;
    object["band_high_hz"] = default_band().high_hz;
    object["subcarriers"] = cfg.ofdm_cfg.sc_num;
    object["message_bit_rate"] = rounded(f.message_rate, 10.0);
    object["air_bit_rate"] = rounded(f.air_rate, 10.0);
    for (const sound_band& band : named_bands()) {
        object["bands"].push_back(
            {{"name", band.name}, {"low_hz", band.low_hz}, {"high_hz", band.high_hz}, {"use", band.use}});
    }
    for (const sound_band& band : wide_bands()) {
        object["wide"].push_back(name_of(band));
    }
    return json_line(object);
}

std::string as_text(const soundcomm_cfg_t& cfg, const facts& f)
{
    std::string lines = text("version    %s\n", KOSC_VERSION);
    lines += text("message    %u bytes, %u CRC-16\n", cfg.msg_byte_len, cfg.crc_cfg.group);
    lines += text("audio      %u Hz, %u bit\n", kosc::SAMPLE_RATE, SAMPLE_BITS);
    lines += text("frame      %u samples, %.3f s\n", f.frame.frame_length, f.seconds);
    lines += text("symbols    %u of %u samples and a prefix of %u\n", f.frame.symbols, cfg.ofdm_cfg.symbol_len,
                  cfg.ofdm_cfg.cp_len);
    lines += text("layout     %s (S synchronisation pilot, P pilot, D data)\n", f.layout.c_str());
    lines += text("band       %.3f Hz to %.3f Hz, %u subcarriers\n", default_band().low_hz, default_band().high_hz,
                  cfg.ofdm_cfg.sc_num);
    lines += text("bit rate   %.1f bit/s of messages, %.1f bit/s on the air\n", f.message_rate, f.air_rate);
    lines += "bands      any from 250 to 23500 Hz; those with a name are\n";
    for (const sound_band& band : named_bands()) {
        lines += text("  %-16s %5.0f to %5.0f Hz  %s\n", band.name, band.low_hz, band.high_hz, band.use);
    }
    const band_list wide = wide_bands();
    lines += text("  %-16s %5.0f to %5.0f Hz  %zu bands side by side, all at once, for files and long texts\n", "wide",
                  wide.front().low_hz, wide.back().high_hz, wide.size());
    return lines;
}

} // namespace

int run_info(bool json)
{
    const soundcomm_cfg_t& cfg = *soundcomm_default_cfg();
    write_output(json ? as_json(cfg, facts_of(cfg)) : as_text(cfg, facts_of(cfg)));
    return EXIT_DONE;
}
