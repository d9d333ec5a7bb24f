#include "repeats.h"

#include <algorithm>
#include <cmath>

namespace kosc_link {
namespace {

constexpr double SAMPLE_RATE = kosc::SAMPLE_RATE;
constexpr double RECORDED_RMS = 1500;
constexpr uint32_t FRAME = kosc::FRAME_SAMPLES;
constexpr uint32_t TAIL = 36000;  // behind the last frame, until all of it is delivered
constexpr uint32_t FARTHEST = 28; // samples that sound takes from one microphone to the other: 20 cm

using message = std::vector<uint8_t>;

std::vector<message> make_messages(const repeat_setup& setup, random_source* random)
{
    message first(kosc::MESSAGE_BYTES);
    for (uint8_t& byte : first) {
        byte = static_cast<uint8_t>(random->bits() >> 56);
    }
    std::vector<message> all(setup.messages, first);
    for (uint32_t i = 1; i < setup.messages; ++i) {
        const auto n = static_cast<uint8_t>(i);
        message& m = all[i];
        switch (setup.kind) {
        case difference::RANDOM:
            for (uint8_t& byte : m) {
                byte = static_cast<uint8_t>(random->bits() >> 56);
            }
            break;
        case difference::FOUR_BYTES: // two in either half
            m[5] = static_cast<uint8_t>(m[5] ^ (1 + n));
            m[9] = static_cast<uint8_t>(m[9] ^ (0x10 * n));
            m[20] = static_cast<uint8_t>(m[20] ^ (3 * n));
            m[25] = static_cast<uint8_t>(m[25] ^ (0x40 + n));
            break;
        case difference::ONE_BYTE:
            m[random->bits() % m.size()] ^= static_cast<uint8_t>(1 + random->bits() % 255);
            break;
        case difference::ONE_HALF:
            for (size_t k = 0; k < m.size() / 2; ++k) {
                m[k + (i % 2 == 0 ? m.size() / 2 : 0)] = static_cast<uint8_t>(random->bits() >> 56);
            }
            break;
        case difference::COUNTER: // one in either half
            m[13] = static_cast<uint8_t>(m[13] + n);
            m[27] = static_cast<uint8_t>(m[27] + n);
            break;
        }
    }
    return all;
}

signal echoes_at(const signal& frame, uint32_t microphone)
{
    return apply_taps(frame, microphone == 0 ? std::vector<tap>{{0, 1.0}, {48, 0.7}, {130, 0.5}}
                                             : std::vector<tap>{{0, 1.0}, {61, 0.7}, {113, 0.5}});
}

struct scene {
    std::vector<message> messages;
    uint32_t lead;
    uint32_t period;
    std::vector<int16_t> heard[MICROPHONES];
};

void add_clicks(signal* x, double level, random_source* random)
{
    constexpr uint32_t APART = 2400;
    constexpr uint32_t LENGTH = 48; // a millisecond of noise, 20 times a second
    const double rms = level * std::sqrt(double{APART} / LENGTH);
    for (size_t n = 0; n < x->size(); ++n) {
        if (n % APART < LENGTH) {
            (*x)[n] += rms * random->gaussian();
        }
    }
}

scene make_scene(const repeat_setup& setup, double snr_db, uint64_t seed)
{
    random_source random{seed * 1000003 + 17};
    soundcomm_cfg_t cfg;
    soundcomm_cfg_for_band(setup.first_subcarrier, &cfg);
    const auto encoder = kosc::encoder::make(setup.first_subcarrier);
    const double spacing = SAMPLE_RATE / cfg.ofdm_cfg.symbol_len;
    const band where = {spacing * setup.first_subcarrier, spacing * (setup.first_subcarrier + cfg.ofdm_cfg.sc_num - 1)};
    scene s{make_messages(setup, &random), static_cast<uint32_t>(13000 + random.bits() % 9000), FRAME + setup.gap, {}};
    const uint32_t frames = setup.repeats * setup.messages;
    const double variance = noise_variance(RECORDED_RMS * RECORDED_RMS, snr_db, where, SAMPLE_RATE);
    const double ppm = 8000 * random.uniform() - 4000; // of this sender
    std::vector<signal> clean;
    for (const message& m : s.messages) {
        const auto pcm = encoder->encode({reinterpret_cast<const char*>(m.data()), m.size()});
        clean.emplace_back(pcm->begin(), pcm->end());
    }
    const std::string& name = setup.channel->name;
    const uint32_t delay = static_cast<uint32_t>(random.bits() % FARTHEST);
    const signal common_noise = [&] {
        signal n(setup.noise_correlation > 0 ? s.lead + frames * s.period + TAIL : 0);
        for (double& v : n) {
            v = random.gaussian();
        }
        return n;
    }();
    for (uint32_t mic = 0; mic < MICROPHONES; ++mic) {
        signal x(s.lead + frames * s.period + TAIL);
        const double level = RECORDED_RMS * (mic == 0 ? 1 : std::pow(10.0, setup.second_level_db / 20));
        for (uint32_t n = 0; n < frames; ++n) {
            const signal& frame = clean[n % setup.messages];
            signal arrived = name == "drift"    ? drift(frame, ppm, ppm, 0, 0)
                             : name == "echoes" ? echoes_at(frame, mic)
                                                : setup.channel->apply(frame, where, &random);
            scale(&arrived, level / std::sqrt(mean_power(arrived, 0, FRAME)));
            const size_t at = s.lead + (mic == 0 ? 0 : delay) + size_t{n} * s.period;
            for (size_t i = 0; i < arrived.size() && at + i < x.size(); ++i) {
                x[at + i] += arrived[i];
            }
        }
        const double own = std::sqrt(variance * (1 - setup.noise_correlation));
        const double common = std::sqrt(variance * setup.noise_correlation);
        for (size_t i = 0; i < x.size(); ++i) {
            x[i] += own * random.gaussian() + (common > 0 ? common * common_noise[i] : 0.0);
        }
        const double beside = RECORDED_RMS / std::pow(10.0, setup.beside_db / 20);
        if (setup.beside == disturbance::CLICKS) {
            add_clicks(&x, beside, &random);
        } else if (setup.beside == disturbance::SPEECH) {
            const size_t from = random.bits() % setup.speech->size();
            for (size_t i = 0; i < x.size(); ++i) {
                x[i] += beside * (*setup.speech)[(from + i) % setup.speech->size()];
            }
        }
        if (setup.clip_rms > 0) {
            clip(&x, setup.clip_rms * std::sqrt(mean_power(x, 0, x.size())));
        }
        s.heard[mic] = to_pcm(x);
    }
    return s;
}

// Feeds channels in turns, each in its own block size, whichever has heard less.
void listen(const scene& s, const repeat_setup& setup, uint32_t channels, uint32_t combining, system which,
            repeat_outcome* outcome)
{
    kosc::receiver_settings settings;
    settings.channels = channels;
    settings.first_subcarrier = setup.first_subcarrier;
    settings.second_look = KOSC_SECOND_LOOK_ON;
    settings.combining = combining;
    auto receiver = kosc::receiver::make(settings);
    auto& first = outcome->first[which];
    first.assign(setup.messages, 0);
    const auto on_message = [&](const kosc::heard& heard) {
        const auto bytes = heard.bytes();
        for (uint32_t i = 0; i < setup.messages; ++i) {
            if (std::equal(bytes.begin(), bytes.end(), s.messages[i].begin(),
                           [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; })) {
                const double frames = std::round((static_cast<double>(heard.sample) - s.lead) / s.period);
                const auto repeat = static_cast<uint32_t>(std::max(frames, 0.0)) / setup.messages + 1;
                first[i] = first[i] == 0 ? repeat : std::min(first[i], repeat);
                return;
            }
        }
        ++outcome->wrong[which];
    };
    size_t done[MICROPHONES] = {};
    const size_t length = s.heard[0].size();
    for (;;) {
        const uint32_t c = channels == 2 && done[1] < done[0] ? 1 : 0;
        const size_t count = std::min<size_t>(setup.block[c], length - done[c]);
        if (count == 0) {
            break;
        }
        receiver->push_channel(c, s.heard[c].data() + done[c], count, on_message);
        done[c] += count;
    }
    if (combining != KOSC_COMBINING_OFF) {
        outcome->counts[channels - 1] = soundcomm_get_combining_counts(receiver->context(0));
    }
}

} // namespace

repeat_outcome run_repeats(const repeat_setup& setup, double snr_db, uint64_t seed)
{
    const scene s = make_scene(setup, snr_db, seed);
    repeat_outcome outcome{};
    if (setup.plain) {
        listen(s, setup, 1, KOSC_COMBINING_OFF, SECOND_LOOK_1, &outcome);
        listen(s, setup, 2, KOSC_COMBINING_OFF, SECOND_LOOK_2, &outcome);
    }
    listen(s, setup, 1, KOSC_COMBINING_EACH, COMBINED_1, &outcome);
    listen(s, setup, 2, KOSC_COMBINING_TOGETHER, COMBINED_2, &outcome);
    return outcome;
}

} // namespace kosc_link
