// One receiver listens for more than a day of sound, rendered and faster than real time, with frames at random times.
// It must deliver, in place, every frame that a fresh receiver finds, hold no more memory at the end than at first, and
// keep its running energy. Meanwhile the sample index of the buffer wraps at 2^32.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <malloc.h>
#include <optional>

#include "listener.h"
#include "non_signals.h"

static int64_t blocks_held = 0;
static int64_t bytes_held = 0;

#ifdef __GLIBC__
// The C library's own, which these stand before for the whole process.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void __libc_free(void*);

static void* count(void* block, int sign)
{
    blocks_held += block != nullptr ? sign : 0;
    bytes_held += sign * static_cast<int64_t>(malloc_usable_size(block));
    return block;
}
void* malloc(size_t size) { return count(__libc_malloc(size), 1); }
void* calloc(size_t number, size_t size) { return count(__libc_calloc(number, size), 1); }
void free(void* block) { __libc_free(count(block, -1)); }
}
#endif

namespace {

constexpr size_t SEGMENT = size_t{1} << 18; // 5.5 seconds, with one frame each
constexpr size_t MARGIN = 24000;            // what a fresh receiver hears before and behind the frame
constexpr size_t QUIET_KINDS = 8;           // the table's first, which are not taken for frames often
constexpr uint64_t MAX_BLOCK = 8192;

// The running energy against a fresh sum over the same samples.
double residue(const data_container& c)
{
    const uint32_t count = c.history_length;
    const double* const y = vector_view(c.filtered_data, -static_cast<int32_t>(count), count);
    double sum = 0.0;
    for (uint32_t i = 0; i < count; ++i) {
        sum += y[i] * y[i];
    }
    return std::fabs(vector_back(c.data_norm) - sum);
}

struct memory {
    int64_t blocks, bytes;
    uint64_t resident_pages;
};

memory measure_memory()
{
    uint64_t all = 0;
    memory now{blocks_held, bytes_held, 0};
    std::ifstream{"/proc/self/statm"} >> all >> now.resident_pages;
    return now;
}

// What came of the frames, and the running energy.
struct tally {
    uint64_t sent, expected, lost, more, shifted, furthest, wrong_offsets;
    double loudest, residue, worst_residue;
};

// Of what was found since last asked.
std::optional<noted_frame> first_decoded(listener* heard, tally* all)
{
    std::optional<noted_frame> first;
    for (const noted_frame& frame : heard->take()) {
        all->wrong_offsets += frame.offset != static_cast<uint32_t>(frame.sample) ? 1 : 0;
        first = frame.decoded && !first ? frame : first;
    }
    return first;
}

// Adds the frame of message `number` to a segment and returns where it starts.
size_t add_frame(kosc_link::signal* sound, sound_source* source, uint64_t number)
{
    uint8_t message[28] = {};
    std::memcpy(message, &number, sizeof number);
    const uint32_t length = source->modem->frame.frame_length;
    kosc_link::signal frame(length);
    soundcomm_encode(source->modem, message, sizeof message, frame.data(), length);
    const double peak = std::pow(10.0, -2.0 * source->random.uniform());
    kosc_link::scale(&frame, calc_peak_scale(frame.data(), length, peak));
    const size_t start = MARGIN + source->random.bits() % (sound->size() - length - 2 * MARGIN);
    const auto place = sound->begin() + static_cast<ptrdiff_t>(start);
    std::transform(frame.begin(), frame.end(), place, place, std::plus<>());
    return start;
}

// One segment, which holds message `number` and begins at sample `first`, for the listener and for a fresh receiver.
void hear_segment(listener* daily, const soundcomm_cfg_t& cfg, sound_source* source, uint64_t number, uint64_t first,
                  tally* all)
{
    kosc_link::signal sound(SEGMENT);
    sound_kinds()[source->random.bits() % QUIET_KINDS].fill(&sound, source);
    const size_t start = add_frame(&sound, source, number);
    const std::vector<int16_t> pcm = to_samples(sound);
    listener fresh{KOSC_SECOND_LOOK_ON, cfg};
    fresh.hear(&pcm[start - MARGIN], MARGIN + source->modem->frame.frame_length + MARGIN);
    const data_container& container = *daily->buffer();
    for (size_t at = 0, size = 0; at < pcm.size(); at += size) {
        size = std::min<size_t>(pcm.size() - at, 1 + source->random.bits() % MAX_BLOCK);
        daily->hear(&pcm[at], size);
        all->residue = residue(container);
        all->worst_residue = std::max(all->worst_residue, all->residue);
        all->loudest = std::max(all->loudest, vector_back(container.data_norm));
    }
    const std::optional<noted_frame> expected = first_decoded(&fresh, all), heard = first_decoded(daily, all);
    const bool finds = expected.has_value();
    const bool found = heard && std::memcmp(heard->message.data(), &number, sizeof number) == 0;
    ++all->sent;
    all->expected += finds ? 1 : 0;
    all->lost += finds && !found ? 1 : 0;
    all->more += found && !finds ? 1 : 0;
    if (found && finds) {
        // A peak right behind a search window is found by its flank, at most as early as windows overlap.
        const auto shift = static_cast<int64_t>(heard->sample - first - (start - MARGIN + expected->sample));
        all->shifted += shift != 0 ? 1 : 0;
        all->furthest = std::max<uint64_t>(all->furthest, static_cast<uint64_t>(std::abs(shift)));
    }
}

void print(const char* what, uint64_t value)
{
    std::printf("%-58s %llu\n", what, static_cast<unsigned long long>(value));
}

void report(const tally& all, const memory& early, const memory& late)
{
    print("frames sent", all.sent);
    print("found by a fresh receiver", all.expected);
    print("lost among these", all.lost);
    print("found by the listener alone", all.more);
    print("placed elsewhere than by a fresh receiver", all.shifted);
    print("by at most, samples", all.furthest);
    for (const auto& [when, at] : {std::pair{"after a tenth", early}, std::pair{"at the end", late}}) {
        std::printf("heap %-53s %lld blocks, %lld bytes; resident %llu pages\n", when,
                    static_cast<long long>(at.blocks), static_cast<long long>(at.bytes),
                    static_cast<unsigned long long>(at.resident_pages));
    }
    std::printf("%-58s %.3g\n", "largest energy of a window", all.loudest);
    std::printf("%-58s %.3g\n", "largest residue of the running energy", all.worst_residue);
    std::printf("%-58s %.3g\n", "residue at the end", all.residue);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fputs("usage: kosc_soak HOURS SEED [FIRST_SAMPLE [BAND [--crowd] [--combine]]]\n", stderr);
        return EXIT_FAILURE;
    }
    log_level = KOSC_LEVEL_ERROR;
    const soundcomm_cfg_t cfg = configuration_of(argc > 4 ? argv[4] : "near-ultrasonic");
    const auto segments = static_cast<uint64_t>(std::atof(argv[1]) * 3600 * 48000 / SEGMENT);
    listener daily{KOSC_SECOND_LOOK_ON, cfg};
    const auto is_set = [&](const char* option) {
        return std::any_of(argv + std::min(argc, 5), argv + argc,
                           [&](const char* a) { return a == std::string(option); });
    };
    const bool crowd = is_set("--crowd");
    const bool combine = is_set("--combine");
    if ((crowd && !soundcomm_config_crowd(daily.context(), KOSC_CROWD_CANCEL)) ||
        (combine && !soundcomm_config_combining(daily.context(), nullptr, KOSC_COMBINING_EACH))) {
        return EXIT_FAILURE;
    }
    // As if so many samples had been heard before.
    const uint64_t first = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 0;
    data_container* const container = daily.buffer();
    daily.context()->rx_paras->received = first;
    container->removed_length = static_cast<uint32_t>(first);
    sound_source source{kosc_link::random_source{std::strtoull(argv[2], nullptr, 10)}, daily.context()->tx_paras, {}};
    tally all{};
    memory early{};
    for (uint64_t n = 0; n < segments; ++n) {
        hear_segment(&daily, cfg, &source, n, first + n * SEGMENT, &all);
        if (n == segments / 10) {
            early = measure_memory();
        }
    }
    const memory late = measure_memory();
    print("samples heard", segments * SEGMENT);
    print("index of the last, in 64 bits", first + segments * SEGMENT - 1);
    print("positions removed from the buffer, in 32 bits", container->removed_length);
    print("32-bit offsets that are not the 64-bit ones modulo 2^32", all.wrong_offsets);
    if (combine) {
        print("messages that combining added", soundcomm_get_combining_counts(daily.context()).messages);
    }
    if (crowd) {
        const crowd_counts_t counts = soundcomm_get_crowd_counts(daily.context());
        print("peaks tried by the crowd's search", counts.tried);
        print("frames cancelled", counts.cancelled);
    }
    report(all, early, late);
    const bool good = all.expected > 0 && all.lost == 0 && all.furthest <= container->search_margin &&
                      all.wrong_offsets == 0 && late.blocks == early.blocks && late.bytes == early.bytes &&
                      all.worst_residue < 1.0;
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
