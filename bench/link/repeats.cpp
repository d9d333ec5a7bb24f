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
    std::vector<message> all(setup.messages, random_message(random));
    for (uint32_t i = 1; i < setup.messages; ++i) {
        const auto n = static_cast<uint8_t>(i);
        message& m = all[i];
        switch (setup.kind) {
        case difference::RANDOM:
            m = random_message(random);
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
    return microphone == 0 ? with_echoes(frame) : apply_taps(frame, {{0, 1.0}, {61, 0.7}, {113, 0.5}});
}

// Clicks of a millisecond of noise, 20 times a second.
signal make_clicks(size_t length, random_source* random)
{
    constexpr uint32_t APART = 2400;
    constexpr uint32_t LENGTH = 48;
    const double rms = std::sqrt(double{APART} / LENGTH);
    signal clicks(length);
    for (size_t n = 0; n < length; ++n) {
        clicks[n] = n % APART < LENGTH ? rms * random->gaussian() : 0.0;
    }
    return clicks;
}

signal make_noise(size_t length, random_source* random)
{
    signal noise(length);
    add_noise(&noise, 1, random);
    return noise;
}

signal make_beside(const repeat_setup& setup, size_t length, random_source* random)
{
    if (setup.beside != disturbance::SPEECH) {
        return setup.beside == disturbance::CLICKS ? make_clicks(length, random) : signal{};
    }
    const size_t from = random->bits() % setup.speech->size();
    signal speech(length);
    for (size_t i = 0; i < length; ++i) {
        speech[i] = (*setup.speech)[(from + i) % setup.speech->size()];
    }
    return speech;
}

} // namespace

repeat_trial::repeat_trial(const repeat_setup& setup, uint64_t seed) : setup_{setup}
{
    random_source random{seed * 1000003 + 17};
    const auto encoder = kosc::encoder::make(setup.first_subcarrier);
    where_ = band_of(setup.first_subcarrier);
    messages_ = make_messages(setup, &random);
    lead_ = static_cast<uint32_t>(13000 + random.bits() % 9000);
    period_ = FRAME + setup.gap;
    const uint32_t frames = setup.repeats * setup.messages;
    const size_t length = lead_ + size_t{frames} * period_ + TAIL;
    const double ppm = 8000 * random.uniform() - 4000; // of this sender
    std::vector<signal> clean;
    for (const message& m : messages_) {
        const auto pcm = encoder->encode({reinterpret_cast<const char*>(m.data()), m.size()});
        clean.emplace_back(pcm->begin(), pcm->end());
    }
    const std::string& name = setup.channel->name;
    const uint32_t delay = static_cast<uint32_t>(random.bits() % FARTHEST);
    common_noise_ = make_noise(setup.noise_correlation > 0 ? length : 0, &random);
    for (uint32_t mic = 0; mic < MICROPHONES; ++mic) {
        signal& x = microphone_[mic].frames;
        x.resize(length);
        const double level = RECORDED_RMS * (mic == 0 ? 1 : std::pow(10.0, setup.second_level_db / 20));
        for (uint32_t n = 0; n < frames; ++n) {
            const signal& frame = clean[n % setup.messages];
            signal arrived = name == "drift"    ? drift(frame, ppm, ppm, 0, 0)
                             : name == "echoes" ? echoes_at(frame, mic)
                                                : setup.channel->apply(frame, where_, &random);
            scale(&arrived, level / std::sqrt(mean_power(arrived, 0, FRAME)));
            const size_t at = lead_ + (mic == 0 ? 0 : delay) + size_t{n} * period_;
            for (size_t i = 0; i < arrived.size() && at + i < x.size(); ++i) {
                x[at + i] += arrived[i];
            }
        }
        microphone_[mic].noise = make_noise(length, &random);
        microphone_[mic].beside = make_beside(setup, length, &random);
    }
}

std::vector<int16_t> repeat_trial::record(uint32_t microphone, double snr_db) const
{
    const auto& parts = microphone_[microphone];
    const double variance = noise_variance(RECORDED_RMS * RECORDED_RMS, snr_db, where_, SAMPLE_RATE);
    const double own = std::sqrt(variance * (1 - setup_.noise_correlation));
    const double common = std::sqrt(variance * setup_.noise_correlation);
    const double beside = RECORDED_RMS / std::pow(10.0, setup_.beside_db / 20);
    signal x = parts.frames;
    const auto add = [&](double level, const signal& more) {
        for (size_t i = 0; i < more.size(); ++i) {
            x[i] += level * more[i];
        }
    };
    add(own, parts.noise);
    add(common, common_noise_);
    add(beside, parts.beside);
    if (setup_.clip_rms > 0) {
        clip(&x, setup_.clip_rms * std::sqrt(mean_power(x, 0, x.size())));
    }
    return to_pcm(x);
}

// Repeats that had begun when a message was recovered, in whose group something that begins at `sample` came last: a
// frame, as it was found, or noise behind it.
uint32_t repeat_trial::sent_until(int64_t sample) const
{
    constexpr int64_t EARLIEST = 2000; // as which a frame may be found
    const int64_t frames = std::max<int64_t>(sample - lead_ + EARLIEST, 0) / period_;
    return std::min(static_cast<uint32_t>(frames) / setup_.messages + 1, setup_.repeats);
}

// Feeds channels in turns, each in its own block size, whichever has heard less.
void repeat_trial::listen(const std::array<std::vector<int16_t>, MICROPHONES>& heard, system which,
                          repeat_outcome* outcome) const
{
    const bool combines = which == COMBINED_1 || which == COMBINED_2;
    kosc::receiver_settings settings;
    settings.channels = which == SECOND_LOOK_1 || which == COMBINED_1 ? 1 : 2;
    settings.first_subcarrier = setup_.first_subcarrier;
    settings.second_look = KOSC_SECOND_LOOK_ON;
    settings.combining = combines ? settings.channels : uint32_t{KOSC_COMBINING_OFF};
    auto receiver = kosc::receiver::make(settings);
    auto& first = outcome->first[which];
    first.assign(setup_.messages, 0);
    uint32_t missing = setup_.messages;
    const auto on_message = [&](const kosc::heard& one) {
        const auto bytes = one.bytes();
        for (uint32_t i = 0; i < setup_.messages; ++i) {
            if (std::equal(bytes.begin(), bytes.end(), messages_[i].begin(),
                           [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; })) {
                const uint32_t repeat = sent_until(one.sample);
                missing -= first[i] == 0 ? 1 : 0;
                first[i] = first[i] == 0 ? repeat : std::min(first[i], repeat);
                return;
            }
        }
        ++outcome->wrong[which];
    };
    size_t done[MICROPHONES] = {};
    while (missing != 0) {
        const uint32_t c = settings.channels == 2 && done[1] < done[0] ? 1 : 0;
        const size_t count = std::min<size_t>(setup_.block[c], heard[c].size() - done[c]);
        if (count == 0) {
            break;
        }
        receiver->push_channel(c, heard[c].data() + done[c], count, on_message);
        done[c] += count;
    }
    if (combines) {
        outcome->counts[settings.channels - 1] = soundcomm_get_combining_counts(receiver->context(0));
    }
}

repeat_outcome repeat_trial::hear(double snr_db, const std::array<bool, SYSTEMS>& wanted) const
{
    repeat_outcome outcome{};
    const bool needs_second = wanted[SECOND_LOOK_2] || wanted[COMBINED_2];
    const std::array<std::vector<int16_t>, MICROPHONES> heard = {
        record(0, snr_db), needs_second ? record(1, snr_db) : std::vector<int16_t>{}};
    for (int s = 0; s < SYSTEMS; ++s) {
        if (wanted[s]) {
            listen(heard, static_cast<system>(s), &outcome);
        }
    }
    return outcome;
}

repeat_outcome run_repeats(const repeat_setup& setup, double snr_db, uint64_t seed)
{
    return repeat_trial{setup, seed}.hear(snr_db, {setup.plain, setup.plain, true, true});
}

} // namespace kosc_link
