// From samples to weak frames: what is heard is searched a segment at a time.
#include <algorithm>

#include "combine/combiner_parts.h"

using namespace kosc;

namespace {

constexpr uint32_t PIECE = 1024; // samples heard between two looks at what is complete
// Score from which a candidate is worth listening to, of one input and of two: where noise has a few a second.
constexpr float LEAST_SCORE[MAX_INPUTS] = {0.18F, 0.29F};
// Until a frame's last start in a segment is past by so much, the receiver's own search may still deliver it: its
// window of a frame's length ends a synchronisation pilot behind the frame.
constexpr uint32_t OWN_SEARCH = 14400;
// Samples by which an input may be late and is still heard together with the other.
constexpr uint32_t WAIT_FOR_INPUT = 9600;

void work_on_segment(const uint32_t* inputs, uint32_t count, combiner_t* c)
{
    const microphone* heard[MAX_INPUTS];
    for (uint32_t e = 0; e < count; ++e) {
        heard[e] = &c->input[inputs[e]];
    }
    const candidate found = search_segment(heard, count, c->next[inputs[0]], &c->search);
    if (found.score < LEAST_SCORE[count - 1]) {
        return;
    }
    for (uint32_t e = 0; e < count; ++e) {
        if (was_noted(c->known, inputs[e], found.start[e])) {
            return;
        }
    }
    ++c->counts.candidates;
    const uint32_t frames = take_weak_frames(heard, inputs, count, found, &c->groups.maker, c->fresh);
    if (frames != 0) {
        take_fresh(frames, c);
    }
}

// Works on all segments that are complete. An input waits for the other for a while, to be heard together with it.
void work(combiner_t* c)
{
    constexpr uint64_t NEED = SEGMENT_LEN * DECIMATION + OWN_SEARCH;
    static_assert(NEED > (SEGMENT_READS + SEARCH_AROUND) * DECIMATION + band_mixer::REACH, "a segment is whole then");
    const auto is_ready = [&](uint32_t e, uint64_t wait) {
        return c->input[e].raw_count >= c->next[e] * DECIMATION + NEED + wait;
    };
    for (bool more = true; more;) {
        more = false;
        const uint32_t both[] = {0, 1};
        if (c->input_num == 2 && c->next[0] == c->next[1] && is_ready(0, 0) && is_ready(1, 0)) {
            work_on_segment(both, 2, c);
            c->next[0] += SEGMENT_LEN;
            c->next[1] += SEGMENT_LEN;
            more = true;
            continue;
        }
        for (uint32_t e = 0; e < c->input_num; ++e) {
            const bool is_alone = c->input_num == 1 || c->next[e] < c->next[1 - e];
            if (is_ready(e, is_alone ? 0 : WAIT_FOR_INPUT)) {
                work_on_segment(&both[e], 1, c);
                c->next[e] += SEGMENT_LEN;
                more = true;
            }
        }
    }
}

} // namespace

namespace kosc {

void begin_block(uint32_t e, uint64_t count, combiner_t* c)
{
    if (c->input_num != 2) {
        return;
    }
    microphone* const input = &c->input[e];
    const uint64_t other = c->input[1 - e].raw_count;
    if (input->raw_count + count + input->raw_len >= other) {
        return;
    }
    // The second is fed after the first, whose block then is the same moment's.
    const uint64_t now = e == 0 ? other : other - count;
    skip(now - input->raw_count, input);
    const uint64_t segments = (input->raw_count / DECIMATION + SEGMENT_LEN) / SEGMENT_LEN;
    c->next[e] = SEARCH_AROUND + segments * SEGMENT_LEN;
}

void feed_combiner(uint32_t input, const int16_t* samples, uint32_t count, take_recovered take, void* user,
                   combiner_t* c)
{
    c->fed = input;
    c->take = take;
    c->user = user;
    for (uint32_t done = 0; done < count; done += PIECE) {
        take_samples(c->mixer, samples + done, std::min(count - done, PIECE), &c->input[input]);
        work(c);
    }
}

uint64_t samples_taken(const combiner_t& c, uint32_t input) { return c.input[input].raw_count; }

const double* samples_of(uint32_t input, double start, combiner_t* c)
{
    double* const samples = c->groups.maker.samples[0];
    return fetch_samples(c->input[input], start, c->groups.maker.paras->frame.frame_length, samples) ? samples
                                                                                                     : nullptr;
}

} // namespace kosc
