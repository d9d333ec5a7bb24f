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

#include "kosc/kosc.hpp"
#include "non_signals.h"

static int64_t blocks_held = 0;
static int64_t bytes_held = 0;

#ifdef __GLIBC__
// The C library's own, which these stand before for the whole process.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);

static void* count(void* block, int sign)
{
    blocks_held += block != nullptr ? sign : 0;
    bytes_held += sign * static_cast<int64_t>(malloc_usable_size(block));
    return block;
}
void* malloc(size_t size) { return count(__libc_malloc(size), 1); }
void* calloc(size_t number, size_t size) { return count(__libc_calloc(number, size), 1); }
void* aligned_alloc(size_t alignment, size_t size) { return count(__libc_memalign(alignment, size), 1); }
void free(void* block) { __libc_free(count(block, -1)); }
}
#endif

namespace {

constexpr size_t SEGMENT = size_t{1} << 18; // 5.5 seconds, with one frame each
constexpr size_t MARGIN = 24000;            // what a fresh receiver hears before and behind the frame
constexpr size_t QUIET_KINDS = 8;           // the table's first, which are not taken for frames often
constexpr uint64_t MAX_BLOCK = 8192;

soundcomm_cfg_t cfg = *soundcomm_default_cfg(); // in the band that is asked for

struct receiver {
    kosc::context_ptr ctx = kosc::make_receiving_context(KOSC_SECOND_LOOK_ON, cfg);
    std::vector<uint64_t> found;   // starts of the frames decoded since last asked
    std::vector<uint64_t> numbers; // what they carried
    uint64_t wrong_offsets = 0;

    receiver()
    {
        soundcomm_set_frame_callback(ctx.get(), note, this);
        found.reserve(16);
        numbers.reserve(16);
    }
    static void note(const frame_report_t* report, void* user)
    {
        receiver& r = *static_cast<receiver*>(user);
        if (report->verdict == 1) {
            uint64_t number = 0;
            std::memcpy(&number, report->msg, sizeof number);
            r.found.push_back(report->sample);
            r.numbers.push_back(number);
        }
        const sync_iter& iter = soundcomm_get_datacontainer(r.ctx->rx_paras, 0)->iter;
        r.wrong_offsets += sync_iter_get_global_offset(&iter) != static_cast<uint32_t>(report->sample) ? 1 : 0;
    }
    void hear(const int16_t* sound, size_t count)
    {
        result_set_t results{};
        if (soundcomm_receive(ctx.get(), sound, static_cast<uint32_t>(count), &results) != 0) {
            std::puts("the receiver failed");
            std::exit(EXIT_FAILURE);
        }
    }
};

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
    uint64_t sent, expected, lost, more, shifted, furthest;
    double loudest, residue, worst_residue;
};

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
void hear_segment(receiver* listener, sound_source* source, uint64_t number, uint64_t first, tally* all)
{
    kosc_link::signal sound(SEGMENT);
    sound_kinds()[source->random.bits() % QUIET_KINDS].fill(&sound, source);
    const size_t start = add_frame(&sound, source, number);
    const std::vector<int16_t> pcm = to_samples(sound);
    receiver fresh;
    fresh.hear(&pcm[start - MARGIN], MARGIN + source->modem->frame.frame_length + MARGIN);
    const data_container& container = *soundcomm_get_datacontainer(listener->ctx->rx_paras, 0);
    for (size_t at = 0, size = 0; at < pcm.size(); at += size) {
        size = std::min<size_t>(pcm.size() - at, 1 + source->random.bits() % MAX_BLOCK);
        listener->hear(&pcm[at], size);
        all->residue = residue(container);
        all->worst_residue = std::max(all->worst_residue, all->residue);
        all->loudest = std::max(all->loudest, vector_back(container.data_norm));
    }
    const bool finds = !fresh.found.empty();
    const bool found = !listener->found.empty() && listener->numbers[0] == number;
    ++all->sent;
    all->expected += finds ? 1 : 0;
    all->lost += finds && !found ? 1 : 0;
    all->more += found && !finds ? 1 : 0;
    if (found && finds) {
        // A peak right behind a search window is found by its flank, at most as early as windows overlap.
        const auto shift = static_cast<int64_t>(listener->found[0] - first - (start - MARGIN + fresh.found[0]));
        all->shifted += shift != 0 ? 1 : 0;
        all->furthest = std::max<uint64_t>(all->furthest, static_cast<uint64_t>(std::abs(shift)));
    }
    listener->found.clear();
    listener->numbers.clear();
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
        std::fputs("usage: kosc_soak HOURS SEED [FIRST_SAMPLE [BAND]]\n", stderr);
        return EXIT_FAILURE;
    }
    log_level = KOSC_LEVEL_ERROR;
    ko_soundcommu_band_t band;
    if (argc > 4 &&
        (ko_soundcommu_find_band(argv[4], &band) != 0 || !soundcomm_cfg_for_band(band.first_subcarrier, &cfg))) {
        return EXIT_FAILURE;
    }
    const auto segments = static_cast<uint64_t>(std::atof(argv[1]) * 3600 * 48000 / SEGMENT);
    receiver listener;
    // As if so many samples had been heard before.
    const uint64_t first = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 0;
    data_container* const container = soundcomm_get_datacontainer(listener.ctx->rx_paras, 0);
    listener.ctx->rx_paras->received = first;
    container->removed_length = static_cast<uint32_t>(first);
    sound_source source{kosc_link::random_source{std::strtoull(argv[2], nullptr, 10)}, listener.ctx->tx_paras, {}};
    tally all{};
    memory early{};
    for (uint64_t n = 0; n < segments; ++n) {
        hear_segment(&listener, &source, n, first + n * SEGMENT, &all);
        if (n == segments / 10) {
            early = measure_memory();
        }
    }
    const memory late = measure_memory();
    print("samples heard", segments * SEGMENT);
    print("index of the last, in 64 bits", first + segments * SEGMENT - 1);
    print("positions removed from the buffer, in 32 bits", container->removed_length);
    print("32-bit offsets that are not the 64-bit ones modulo 2^32", listener.wrong_offsets);
    report(all, early, late);
    const bool good = all.expected > 0 && all.lost == 0 && all.furthest <= container->search_margin &&
                      listener.wrong_offsets == 0 && late.blocks == early.blocks && late.bytes == early.bytes &&
                      all.worst_residue < 1.0;
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
