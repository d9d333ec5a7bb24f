#include "non_signals.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>

#include "kosc/kosc.hpp"

using namespace kosc_link;
using kosc_link::signal; // not the C library's

namespace {

constexpr double PI = 3.141592653589793;
constexpr double SAMPLE_RATE = 48000;
constexpr size_t WAV_HEADER = 44;
constexpr double QPSK_AXIS = 0.7071067811865475;

double between(random_source& r, double low, double high) { return low + (high - low) * r.uniform(); }
size_t below(random_source& r, size_t limit) { return r.bits() % limit; }
bool coin(random_source& r) { return (r.bits() & 1) != 0; }

// An amplitude in 16-bit steps: every decade from a thirtieth of a step to what clips is as likely.
double level(random_source& r) { return std::exp(between(r, std::log(0.03), std::log(60000.0))); }

// The modem's band and some 500 Hz on either side.
band around_the_band(const sound_source& s)
{
    const ofdm_cfg& ofdm = s.modem->cfg.ofdm_cfg;
    const double first = SAMPLE_RATE / ofdm.symbol_len * ofdm.sc_start_idx;
    return {std::max(first - 500, 20.0), std::min(first + 3500, 24000.0)};
}

// Angle a sample, half of them in the modem's band.
double pitch(sound_source* s)
{
    const band around = around_the_band(*s);
    random_source& r = s->random;
    const double hertz = coin(r) ? between(r, around.low, around.high) : between(r, 20, 24000);
    return 2 * PI * hertz / SAMPLE_RATE;
}

// Nearly normal, variance 1, far cheaper than Box and Muller's: the sum of four uniform numbers.
double quick_noise(random_source& r)
{
    const uint64_t x = r.bits();
    const auto sum = static_cast<double>((x & 0xFFFF) + (x >> 16 & 0xFFFF) + (x >> 32 & 0xFFFF) + (x >> 48));
    return (sum - 2.0 * 0xFFFF) * (1.7320508 / 0x10000);
}

template <typename Next> void fill_with(signal* out, Next next) { std::generate(out->begin(), out->end(), next); }

void nothing(signal*, sound_source*) {}

void offset(signal* out, sound_source* s) { add_dc(out, level(s->random) - level(s->random)); }

void white(signal* out, sound_source* s)
{
    fill_with(out, [&r = s->random, a = level(s->random)] { return a * quick_noise(r); });
}

// Voss 1975, as told by Gardner 1978: rows that change half as often each, added up.
void pink(signal* out, sound_source* s)
{
    double rows[16] = {};
    double sum = 0;
    uint32_t count = 0;
    fill_with(out, [&, a = level(s->random)] {
        double& row = rows[__builtin_ctz(++count | 1U << 15)];
        sum -= row;
        row = quick_noise(s->random);
        sum += row;
        return a * (sum + quick_noise(s->random));
    });
}

// White noise through a resonator of two poles.
void band_noise(signal* out, sound_source* s)
{
    const double radius = 1 - std::exp(between(s->random, std::log(1e-4), std::log(0.2)));
    const double turn = 2 * radius * std::cos(pitch(s));
    double y1 = 0;
    double y2 = 0;
    fill_with(out, [&, a = level(s->random) * std::sqrt(1 - radius)] {
        const double y = a * quick_noise(s->random) + turn * y1 - radius * radius * y2;
        y2 = y1;
        return y1 = y;
    });
}

void add_tone(signal* out, double amplitude, double turn, double phase)
{
    // Each sample from the two before it: sin(n+1) = 2*cos(turn)*sin(n) - sin(n-1).
    double before = amplitude * std::sin(phase - turn);
    double now = amplitude * std::sin(phase);
    for (double& x : *out) {
        x += now;
        const double next = 2 * std::cos(turn) * now - before;
        before = now;
        now = next;
    }
}

void tones(signal* out, sound_source* s)
{
    for (size_t i = 0; i <= below(s->random, 4); ++i) {
        add_tone(out, level(s->random), pitch(s), between(s->random, 0, 2 * PI));
    }
}

void square(signal* out, sound_source* s)
{
    double phase = 0;
    fill_with(out, [&, a = level(s->random), turn = pitch(s) / (coin(s->random) ? 2 * PI : 40 * PI)] {
        phase += turn - (phase >= 1 ? 1 : 0);
        return phase < 0.5 ? a : -a;
    });
}

void clicks(signal* out, sound_source* s)
{
    const double rate = std::exp(between(s->random, std::log(1e-5), std::log(1e-2)));
    fill_with(out,
              [&r = s->random, rate, a = level(s->random)] { return r.uniform() < rate ? a * quick_noise(r) : 0; });
}

// A sender of symbols: `turn` is the angle a sample, drawn anew for each symbol by `next_turn` and changed by `bend`.
template <typename NextTurn>
void add_keyed(signal* out, double amplitude, size_t symbol_len, double bend, NextTurn next)
{
    double phase = 0;
    double turn = 0;
    for (size_t i = 0; i < out->size(); ++i, turn += bend) {
        turn = i % symbol_len == 0 ? next(&phase) : turn;
        phase = std::remainder(phase + turn, 2 * PI);
        (*out)[i] += amplitude * std::sin(phase);
    }
}

double turn_at(const sound_source& s, double share)
{
    const band around = around_the_band(s);
    return 2 * PI * (around.low + share * (around.high - around.low)) / SAMPLE_RATE;
}

// Up and down through the band: much slower than a pilot, faster, and nearly as fast.
void sweeps(signal* out, sound_source* s)
{
    const size_t pilot_like = 1300 + below(s->random, 130); // its 3000 Hz take 1024 samples
    const size_t length = coin(s->random) ? pilot_like : 256 + below(s->random, coin(s->random) ? 2048 : 96000);
    const bool up = coin(s->random);
    const double bend = (turn_at(*s, 1) - turn_at(*s, 0)) / static_cast<double>(length);
    add_keyed(out, level(s->random), length, up ? bend : -bend, [=](double*) { return turn_at(*s, up ? 0 : 1); });
}

void frequency_keying(signal* out, sound_source* s)
{
    const size_t count = 2 + below(s->random, 15);
    add_keyed(out, level(s->random), 64 + below(s->random, 2000), 0, [&](double*) {
        return turn_at(*s, static_cast<double>(below(s->random, count)) / static_cast<double>(count));
    });
}

void phase_keying(signal* out, sound_source* s)
{
    add_keyed(out, level(s->random), 12 + below(s->random, 100), 0,
              [&, turn = turn_at(*s, s->random.uniform())](double* phase) {
                  *phase += PI / 2 * static_cast<double>(below(s->random, 4));
                  return turn;
              });
}

// Chirps that begin anywhere in the band, as spread-spectrum radios send them.
void chirp_keying(signal* out, sound_source* s)
{
    const size_t length = size_t{256} << below(s->random, 5);
    const double bend = (turn_at(*s, 1) - turn_at(*s, 0)) / static_cast<double>(length);
    add_keyed(out, level(s->random), length, bend, [&](double*) { return turn_at(*s, s->random.uniform() - 0.5); });
}

// Another OFDM modem: its own symbol length, prefix and subcarriers, some symbols over and over.
void other_ofdm(signal* out, sound_source* s)
{
    const size_t length = 480 + below(s->random, 1200);
    const size_t prefix = below(s->random, length / 3);
    std::vector<signal> symbols(4, signal(length));
    const band around = around_the_band(*s);
    const double carriers = (around.high - around.low) / SAMPLE_RATE * static_cast<double>(length);
    const ofdm_cfg& ofdm = s->modem->cfg.ofdm_cfg;
    const double first = static_cast<double>(ofdm.sc_start_idx) / ofdm.symbol_len;
    for (signal& symbol : symbols) {
        for (double k = 0; k < carriers; ++k) {
            const double turn =
                2 * PI * (k + std::floor(first * static_cast<double>(length))) / static_cast<double>(length);
            add_tone(&symbol, 0.1, turn, PI / 2 * static_cast<double>(below(s->random, 4)));
        }
    }
    size_t i = 0;
    const signal* symbol = symbols.data();
    fill_with(out, [&, a = level(s->random)] {
        symbol = i % (length + prefix) == 0 ? &symbols[below(s->random, symbols.size())] : symbol;
        return a * (*symbol)[(i++ % (length + prefix) + length - prefix) % length];
    });
}

void copy_speech(signal* out, sound_source* s)
{
    size_t at = below(s->random, s->speech.size());
    fill_with(out, [&, a = level(s->random) / 4000] { return a * s->speech[at++ % s->speech.size()]; });
}

void speech_in_the_band(signal* out, sound_source* s)
{
    copy_speech(out, s);
    signal carrier(out->size());
    add_tone(&carrier, 1, turn_at(*s, s->random.uniform()), 0);
    std::transform(out->begin(), out->end(), carrier.begin(), out->begin(), std::multiplies<>());
}

// A piece of music, from silent to clipped.
void copy_music(signal* out, sound_source* s)
{
    size_t at = below(s->random, s->music.size());
    fill_with(out, [&, a = level(s->random) / 4] { return a * s->music[at++ % s->music.size()]; });
}

// A frame with these QPSK values, which come from a message's code or from nowhere.
signal make_frame(const soundcomm_paras_t* modem, const kosc::complex_ptr& values)
{
    const kosc::doubles_ptr frame{FrameGenerate(modem, values.get())};
    return {frame->data, frame->data + frame->size};
}

signal random_values_frame(sound_source* s)
{
    const kosc::complex_ptr values{kom_vector_complex_alloc(s->modem->frame.re_num)};
    std::generate_n(values->data, 2 * values->size, [&] { return coin(s->random) ? QPSK_AXIS : -QPSK_AXIS; });
    return make_frame(s->modem, values);
}

signal message_frame(sound_source* s)
{
    std::array<uint8_t, kosc::MESSAGE_BYTES> message;
    std::generate(message.begin(), message.end(), [&] { return static_cast<uint8_t>(s->random.bits()); });
    s->spoilt.push_back(message);
    signal frame(s->modem->frame.frame_length);
    soundcomm_encode(s->modem, message.data(), message.size(), frame.data(), s->modem->frame.frame_length);
    return frame;
}

// A frame in the code, whose CRCs are random as its message: each is a chance of 2^-32 that they match.
signal coded_frame(sound_source* s)
{
    uint8_t block[32];
    std::generate(std::begin(block), std::end(block), [&] { return static_cast<uint8_t>(s->random.bits()); });
    const kom_vector_uint8 bytes = kom_vector_uint8_const_view_array(block, 32, 0, 1, 32);
    const kosc::bytes_ptr plain{vector_byte_to_binary(&bytes)};
    const kosc::bytes_ptr coded{add_channel_code(s->modem, plain.get())};
    const kosc::bytes_ptr spread{interleaver_encode(coded.get(), s->modem->cfg.interleaver_cfg.stride)};
    const kosc::complex_ptr values{qpsk_mod(spread.get())};
    do_papr_reduction(s->modem, values.get());
    return make_frame(s->modem, values);
}

signal pilots_alone(sound_source* s)
{
    signal frame = message_frame(s);
    const size_t symbol = frame.size() / s->modem->frame.symbols;
    for (uint32_t i = 0; i < s->modem->frame.symbols; ++i) {
        if (!is_pilot_index(s->modem->cfg.pilot_cfg.data_pilot_rate, i)) {
            std::fill_n(frame.begin() + static_cast<ptrdiff_t>(i * symbol), symbol, 0.0);
        }
    }
    return frame;
}

// Up to the middle of the third symbol, with one and a half of six data symbols; then nothing.
signal cut_frame(sound_source* s)
{
    signal frame = message_frame(s);
    std::fill(frame.begin() + static_cast<ptrdiff_t>(frame.size() / 9 * 2.5), frame.end(), 0.0);
    return frame;
}

// The first half of one frame and the second half of another.
signal spliced_frame(sound_source* s)
{
    signal frame = message_frame(s);
    const signal other = message_frame(s);
    const auto cut = static_cast<ptrdiff_t>(between(s->random, 0.45, 0.55) * static_cast<double>(frame.size()));
    std::copy(other.begin() + cut, other.end(), frame.begin() + cut);
    return frame;
}

// Every symbol from another frame.
signal patched_frame(sound_source* s)
{
    signal frame = message_frame(s);
    const size_t symbol = frame.size() / s->modem->frame.symbols;
    for (size_t i = 1; i < s->modem->frame.symbols; ++i) {
        const signal other = message_frame(s);
        const auto from = static_cast<ptrdiff_t>(i * symbol);
        std::copy_n(other.begin() + from, symbol, frame.begin() + from);
    }
    return frame;
}

// Frames of a kind at random distances, from faint to clipped, over some noise or none.
template <signal (*Make)(sound_source*)> void frames(signal* out, sound_source* s)
{
    const double peak = std::exp(between(s->random, std::log(1e-3), std::log(3.0)));
    for (size_t at = below(s->random, 8000); at + s->modem->frame.frame_length < out->size();) {
        signal frame = Make(s);
        scale(&frame, calc_peak_scale(frame.data(), s->modem->frame.frame_length, peak));
        std::copy(frame.begin(), frame.end(), out->begin() + static_cast<ptrdiff_t>(at));
        at += frame.size() + (coin(s->random) ? 0 : below(s->random, 5000));
    }
    if (coin(s->random)) {
        add_noise(out, std::pow(32767 * peak * between(s->random, 0, 0.3), 2), &s->random);
    }
}

} // namespace

const std::vector<sound_kind>& sound_kinds()
{
    static const std::vector<sound_kind> all = {
        {"digital silence", 4, nothing, false},
        {"constant offset", 4, offset, false},
        {"white noise", 16, white, false},
        {"pink noise", 12, pink, false},
        {"band noise", 13, band_noise, false},
        {"tones", 10, tones, false},
        {"square waves", 8, square, false},
        {"clicks", 6, clicks, false},
        {"sweeps", 4, sweeps, false},
        {"speech", 9, copy_speech, true},
        {"speech moved into the band", 5, speech_in_the_band, true},
        {"music", 5, copy_music, false},
        {"frequency shift keying", 1, frequency_keying, false},
        {"phase shift keying", 1, phase_keying, false},
        {"chirp spread spectrum", 1, chirp_keying, false},
        {"another OFDM", 0.5, other_ofdm, false},
        {"a frame's pilots alone", 0.1, frames<pilots_alone>, false},
        {"pilots around random data", 0.1, frames<random_values_frame>, false},
        {"coded blocks without CRCs", 0.1, frames<coded_frame>, false},
        {"frames cut off", 0.1, frames<cut_frame>, false},
        {"two frames spliced", 0.1, frames<spliced_frame>, false},
        {"symbols of nine frames", 0.1, frames<patched_frame>, false},
    };
    return all;
}

std::vector<int16_t> to_samples(const signal& sound)
{
    std::vector<int16_t> samples(sound.size());
    std::transform(sound.begin(), sound.end(), samples.begin(),
                   [](double x) { return static_cast<int16_t>(std::clamp(x, -32768.0, 32767.0)); });
    return samples;
}

std::vector<int16_t> read_speech(const std::string& name)
{
    std::ifstream file(name, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    std::vector<int16_t> speech;
    for (size_t i = WAV_HEADER; i + 1 < bytes.size(); i += 2) {
        const auto sample = static_cast<int16_t>(static_cast<uint8_t>(bytes[i]) | bytes[i + 1] << 8);
        speech.insert(speech.end(), 2, sample);
    }
    return speech;
}
