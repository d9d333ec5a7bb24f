#include "crowd.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <map>

namespace kosc_link {
namespace {

constexpr double SAMPLE_RATE = kosc::SAMPLE_RATE;
constexpr double LOUDEST_RMS = 3000; // in 16-bit steps
constexpr double SENDER_PPM = 100;
constexpr double FRAME_SECONDS = kosc::FRAME_SAMPLES / SAMPLE_RATE;

kosc::context_ptr make_modem(uint32_t first_subcarrier, uint32_t second_look, uint32_t crowd)
{
    return kosc::make_receiving_context(second_look, configure(first_subcarrier), crowd);
}

// To unit power of the frame.
void normalise(signal* heard)
{
    heard->resize(std::max<size_t>(heard->size(), kosc::FRAME_SAMPLES));
    scale(heard, 1 / std::sqrt(mean_power(*heard, 0, kosc::FRAME_SAMPLES)));
}

signal pass(surroundings where, signal frame, double ppm, random_source* random)
{
    if (where == surroundings::ECHOES) {
        frame = with_echoes(frame);
    } else if (where == surroundings::ROOM) {
        frame = in_small_room(frame, random);
    }
    if (where != surroundings::CLEAN) {
        frame = drift(frame, ppm, ppm, 0, 0);
    }
    normalise(&frame);
    scale(&frame, random->uniform() < 0.5 ? -1.0 : 1.0);
    return frame;
}

void mix(const signal& part, double gain, size_t at, signal* into)
{
    into->resize(std::max(into->size(), at + part.size()));
    for (size_t k = 0; k < part.size(); ++k) {
        (*into)[at + k] += gain * part[k];
    }
}

// Adds noise, `snr_db` below what a frame of the level `rms` has in the band.
void record(signal* sound, double rms, double snr_db, random_source* random, crowd_recording* recording)
{
    add_noise(sound, noise_variance(rms * rms, snr_db, band_of(recording->first_subcarrier), SAMPLE_RATE), random);
    recording->pcm = to_pcm(*sound);
}

// Of this thread's processor time.
double milliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return 1e3 * static_cast<double>(now.tv_sec) + 1e-6 * static_cast<double>(now.tv_nsec);
}

double from_db(double db) { return std::pow(10.0, db / 20); }

} // namespace

crowd_recording make_overlap(const overlap& o, uint64_t seed)
{
    constexpr size_t LEAD_IN = 3000;
    constexpr size_t JITTER = 8; // samples
    random_source random{seed};
    const kosc::context_ptr ctx = make_modem(o.first_subcarrier, KOSC_SECOND_LOOK_OFF, KOSC_CROWD_OFF);
    crowd_recording recording;
    recording.first_subcarrier = o.first_subcarrier;
    signal sound;
    const size_t lead_in = LEAD_IN + random.bits() % 1000;
    const bool loud_first = random.uniform() < 0.5;
    const double sign = random.uniform() < 0.5 ? -1.0 : 1.0;
    for (uint32_t i = 0; i < o.senders; ++i) {
        sent_message message = {random_message(&random), 0};
        if (i > 0) {
            std::copy_n(recording.sent[0].bytes.begin(), o.equal_bytes, message.bytes.begin());
        }
        const signal heard =
            pass(o.where, encode(*ctx, message.bytes), sign * (i % 2 == 0 ? SENDER_PPM : -SENDER_PPM), &random);
        const double place = random.uniform();
        message.start =
            lead_in + random.bits() % JITTER + (o.senders == 2 ? i * o.offset : static_cast<size_t>(place * o.offset));
        const uint32_t rank = o.senders == 2 && !loud_first ? 1 - i : i;
        message.level_db = -o.step_db * rank;
        mix(heard, LOUDEST_RMS * from_db(message.level_db), message.start, &sound);
        recording.sent.push_back(message);
    }
    sound.resize(sound.size() + 2 * size_t{kosc::FRAME_SAMPLES});
    record(&sound, LOUDEST_RMS * from_db(-o.step_db * (o.senders - 1)), o.snr_db, &random, &recording);
    return recording;
}

crowd_recording make_random_access(const random_access& r, uint64_t seed)
{
    constexpr double MOST_PPM = 60;
    constexpr double PAUSE = 0.3; // seconds from one frame of a device to its next, at least
    constexpr double ROOM_TAIL = 0.075;
    struct device {
        signal response;
        double ppm;
        double gain;
        double free_at; // seconds
    };
    random_source random{seed};
    const kosc::context_ptr ctx = make_modem(r.first_subcarrier, KOSC_SECOND_LOOK_OFF, KOSC_CROWD_OFF);
    std::vector<device> devices(r.devices);
    for (uint32_t d = 0; d < r.devices; ++d) {
        devices[d].response = {1.0};
        if (r.rt60 > 0.0) {
            devices[d].response = room_response({r.rt60, 0.001, d % 2 == 0 ? 15.0 : 6.0, SAMPLE_RATE}, &random);
            devices[d].response.resize(static_cast<size_t>(ROOM_TAIL * SAMPLE_RATE));
        }
        devices[d].ppm = MOST_PPM * (2 * random.uniform() - 1);
        devices[d].gain = LOUDEST_RMS * from_db(-r.levels_db * random.uniform());
        devices[d].free_at = 0;
    }
    crowd_recording recording;
    recording.first_subcarrier = r.first_subcarrier;
    signal sound(static_cast<size_t>((r.seconds + 1) * SAMPLE_RATE));
    for (double t = 0.1; t < r.seconds; t -= std::log(random.uniform()) * FRAME_SECONDS / r.load) {
        const auto is_idle = [=](const device& d) { return d.free_at <= t; };
        if (std::none_of(devices.begin(), devices.end(), is_idle)) {
            continue;
        }
        size_t who = random.bits() % devices.size();
        while (!is_idle(devices[who])) {
            who = random.bits() % devices.size();
        }
        device& sender = devices[who];
        sender.free_at = t + PAUSE;
        const sent_message message = {random_message(&random), static_cast<size_t>(t * SAMPLE_RATE),
                                      20 * std::log10(sender.gain / LOUDEST_RMS)};
        signal heard = drift(convolve(encode(*ctx, message.bytes), sender.response), sender.ppm, sender.ppm, 0, 0);
        normalise(&heard);
        mix(heard, sender.gain, message.start, &sound);
        recording.sent.push_back(message);
    }
    record(&sound, LOUDEST_RMS * from_db(-r.levels_db), r.snr_db, &random, &recording);
    return recording;
}

crowd_recording make_frames_apart(const frames_apart& f, uint64_t seed)
{
    constexpr size_t APART = 38000; // samples
    random_source random{seed};
    const kosc::context_ptr ctx = make_modem(f.first_subcarrier, KOSC_SECOND_LOOK_OFF, KOSC_CROWD_OFF);
    crowd_recording recording;
    recording.first_subcarrier = f.first_subcarrier;
    signal sound;
    for (uint32_t i = 0; i < f.frames; ++i) {
        const sent_message message = {random_message(&random), (i + 1) * APART + random.bits() % (APART / 8)};
        mix(pass(f.where, encode(*ctx, message.bytes), i % 2 == 0 ? SENDER_PPM : -SENDER_PPM, &random), LOUDEST_RMS,
            message.start, &sound);
        recording.sent.push_back(message);
    }
    sound.resize(sound.size() + APART);
    record(&sound, LOUDEST_RMS, f.snr_db, &random, &recording);
    return recording;
}

heard_crowd listen(const crowd_recording& recording, const listener& how, uint32_t block)
{
    const kosc::context_ptr ctx = make_modem(recording.first_subcarrier, how.second_look, how.crowd);
    std::vector<uint8_t> messages(soundcomm_decode_length(ctx.get(), block));
    std::map<std::vector<uint8_t>, uint32_t> deliveries;
    heard_crowd heard{};
    heard.was_delivered.resize(recording.sent.size());
    const auto note = [](const frame_report_t* frame, void* user) {
        if (frame->verdict != 1) {
            static_cast<heard_crowd*>(user)->failed.push_back(frame->sample);
        }
    };
    soundcomm_set_frame_callback(ctx.get(), note, &heard);
    const double begin = milliseconds();
    for (size_t at = 0; at < recording.pcm.size(); at += block) {
        const auto count = static_cast<uint32_t>(std::min<size_t>(block, recording.pcm.size() - at));
        result_set_t results{};
        results.decode_type = KOSC_DECODE_FIRST_TRACK;
        results.correct = {messages.data(), static_cast<uint32_t>(messages.size()), 0};
        soundcomm_receive(ctx.get(), recording.pcm.data() + at, count, &results);
        for (size_t i = 0; i < results.correct.count; ++i) {
            const uint8_t* const first = messages.data() + i * kosc::MESSAGE_BYTES;
            const std::vector<uint8_t> bytes(first, first + kosc::MESSAGE_BYTES);
            const auto sent = std::find_if(recording.sent.begin(), recording.sent.end(),
                                           [&](const sent_message& m) { return m.bytes == bytes; });
            if (sent == recording.sent.end()) {
                ++heard.wrong;
            } else if (++deliveries[bytes] > 1) {
                ++heard.repeated;
            } else {
                heard.was_delivered[static_cast<size_t>(sent - recording.sent.begin())] = true;
                const double late = (static_cast<double>(at + count) - sent->start) / SAMPLE_RATE - FRAME_SECONDS;
                heard.latency += late;
                heard.worst_latency = std::max(heard.worst_latency, late);
            }
        }
    }
    heard.milliseconds = milliseconds() - begin;
    heard.delivered = static_cast<uint32_t>(deliveries.size());
    heard.latency /= std::max(heard.delivered, 1U);
    heard.counts = soundcomm_get_crowd_counts(ctx.get());
    return heard;
}

losses explain_losses(const crowd_recording& recording, const heard_crowd& heard)
{
    constexpr int64_t PREFIX = 256;
    losses all{};
    for (size_t i = 0; i < recording.sent.size(); ++i) {
        const auto start = static_cast<int64_t>(recording.sent[i].start);
        const auto is_near = [=](uint64_t other) { return std::llabs(static_cast<int64_t>(other) - start) <= PREFIX; };
        bool aligned = false;
        for (size_t k = 0; k < recording.sent.size() && !heard.was_delivered[i]; ++k) {
            const auto distance = std::llabs(static_cast<int64_t>(recording.sent[k].start) - start);
            all.overlapped += k != i && distance < kosc::FRAME_SAMPLES ? 1 : 0;
            all.lost_too += k != i && distance < kosc::FRAME_SAMPLES && !heard.was_delivered[k] ? 1 : 0;
            aligned = aligned || (k != i && is_near(recording.sent[k].start));
        }
        if (!heard.was_delivered[i]) {
            const bool found = std::any_of(heard.failed.begin(), heard.failed.end(), is_near);
            ++(aligned ? all.within_prefix : found ? all.not_decoded : all.no_peak);
        }
    }
    return all;
}

} // namespace kosc_link
