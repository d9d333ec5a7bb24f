// The fast paths against the plain form of the library, which works sample by sample, slot by slot, butterfly by
// butterfly, and is loaded beside it.
#include <cmath>

#include "channels.h"
#include "modem_library.h"
#include "support/modem.h"

namespace {

context_ptr receiving_context(const modem_library& library)
{
    context_ptr context{library.soundcomm_init(soundcomm_default_cfg(), soundcomm_default_cfg())};
    library.soundcomm_init_receive(context.get(), soundcomm_default_rx_sync_paras(), soundcomm_default_audio_format());
    return context;
}

kosc_link::random_source random_numbers{2024};

uint32_t random_below(uint32_t limit) { return static_cast<uint32_t>(random_numbers.bits() % limit); }

pcm noise(size_t count, double level)
{
    kosc_link::signal sound(count);
    kosc_link::add_noise(&sound, level * level, &random_numbers);
    return kosc_link::to_pcm(sound);
}

// Numbers that the flush of a silent filter may turn into zeros count as zeros.
double settled(double x) { return std::fabs(x) < 1e-300 ? 0.0 : x; }

void expect_same_numbers(const vector* plain, const vector* fast, double tolerance, const char* name)
{
    ASSERT_EQ(vector_size(plain), vector_size(fast)) << name;
    for (uint32_t i = 0; i < vector_size(plain); ++i) {
        const double difference = settled(plain->begin[i]) - settled(fast->begin[i]);
        ASSERT_LE(std::fabs(difference), tolerance) << name << " at " << i;
    }
}

// Frame starts of a pass over what is buffered, every second frame taken as decoded.
count_list find_frames(const modem_library& library, data_container* container)
{
    count_list starts;
    sync_iter* const iter = library.data_container_begin(container);
    while (!sync_iter_is_end(iter)) {
        starts.push_back(sync_iter_get_global_offset(iter));
        sync_iter_update_decode_state(iter, starts.size() % 2 != 0 ? KOSC_FRAME_DECODED : KOSC_FRAME_NOT_DECODED);
        library.sync_iter_next(iter);
    }
    library.data_container_rm_outdated(iter);
    return starts;
}

// Feeds both forms with the same sound in the same random pieces and compares all that they keep.
void expect_same_reception(const pcm& sound)
{
    const context_ptr plain = receiving_context(plain_library());
    const context_ptr fast = receiving_context(fast_library());
    data_container* const slow = plain->rx_paras->track[0].container;
    data_container* const quick = fast->rx_paras->track[0].container;
    for (size_t start = 0; start < sound.size();) {
        // Few samples, many, or one more than the engine takes at once.
        const size_t sizes[] = {size_t{1} + random_below(64), size_t{1} + random_below(9000), 3074};
        const auto piece = static_cast<uint32_t>(
            std::min({sizes[random_below(3)], sound.size() - start, size_t{data_container_unused(quick)}}));
        for (uint32_t i = 0; i < piece; ++i) {
            plain_library().data_container_recv(slow, sound[start + i]);
        }
        ASSERT_TRUE(fast_library().data_container_recv_block(quick, &sound[start], 1, piece));
        expect_same_numbers(slow->data, quick->data, 0.0, "data");
        expect_same_numbers(slow->filtered_data, quick->filtered_data, 1e-200, "filtered_data"); // flushed in silence
        expect_same_numbers(slow->data_norm, quick->data_norm, 0.0, "data_norm");
        // Promised to hosts that read the correlation.
        expect_same_numbers(slow->corrcoef, quick->corrcoef, 1e-9, "corrcoef");
        ASSERT_EQ(find_frames(plain_library(), slow), find_frames(fast_library(), quick));
        start += piece;
    }
}

TEST(FastPaths, ReceiveAsThePlainFormDoes)
{
    const log_capture quiet{0};
    const context_ptr context = make_context();
    const pcm frame = render(encode(context.get(), message("one")));
    pcm square(20000);
    for (size_t i = 0; i < square.size(); ++i) {
        square[i] = i / 2 % 3 == 0 ? INT16_MAX : INT16_MIN;
    }
    expect_same_reception(noise(60000, 800.0));
    expect_same_reception(join({noise(5000, 20.0), frame, frame, noise(3000, 300.0), frame, silence(30000)}));
    expect_same_reception(join({square, silence(15000), noise(20000, 0.4), frame, noise(12000, 0.4)}));
}

TEST(FastPaths, GiveTheSamePcmAndVerdicts)
{
    const log_capture quiet{0};
    const context_ptr plain = receiving_context(plain_library());
    const context_ptr fast = receiving_context(fast_library());
    count_list verdicts(2);
    for (uint32_t round = 0; round < 60; ++round) {
        byte_list sent(MSG_LEN);
        std::generate(sent.begin(), sent.end(), [] { return static_cast<uint8_t>(random_below(256)); });
        double_list frame(FRAME_LEN), same(FRAME_LEN);
        ASSERT_EQ(plain_library().soundcomm_encode(plain->tx_paras, sent.data(), MSG_LEN, frame.data(), FRAME_LEN), 0);
        ASSERT_EQ(fast_library().soundcomm_encode(fast->tx_paras, sent.data(), MSG_LEN, same.data(), FRAME_LEN), 0);
        pcm samples[2] = {pcm(FRAME_LEN), pcm(FRAME_LEN)};
        plain_library().soundcomm_make_audio({2, 1, 48000}, {1, 0.8}, frame.data(), FRAME_LEN, samples[0].data());
        fast_library().soundcomm_make_audio({2, 1, 48000}, {1, 0.8}, same.data(), FRAME_LEN, samples[1].data());
        ASSERT_EQ(samples[0], samples[1]);
        // Enough noise that about half of the frames are lost.
        kosc_link::add_noise(&frame, 2.9 * kosc_link::mean_power(frame, 0, FRAME_LEN), &random_numbers);
        byte_list heard[2] = {byte_list(MSG_LEN), byte_list(MSG_LEN)};
        const uint32_t verdict = plain_library().soundcomm_decode(plain.get(), frame.data(), FRAME_LEN, heard[0].data(),
                                                                  heard[0].data(), MSG_LEN);
        ASSERT_EQ(fast_library().soundcomm_decode(fast.get(), frame.data(), FRAME_LEN, heard[1].data(), heard[1].data(),
                                                  MSG_LEN),
                  verdict);
        ASSERT_EQ(heard[0], heard[1]);
        ++verdicts.at(verdict);
    }
    EXPECT_GT(verdicts[0], 5u);
    EXPECT_GT(verdicts[1], 5u);
}

TEST(FastPaths, TransformToTheSameBits)
{
    for (uint32_t n = 1; n <= 4096; n *= 2) {
        for (const uint32_t stride : {1u, 3u}) {
            double_list plain(size_t{2} * stride * n);
            std::generate(plain.begin(), plain.end(), [] { return random_numbers.gaussian(); });
            double_list fast = plain;
            for (const bool forward : {true, false}) {
                const auto run = [&](const modem_library& library, double_list* x) {
                    return (forward ? library.kom_fft_complex_radix2_forward
                                    : library.kom_fft_complex_radix2_inverse)(x->data(), stride, n);
                };
                ASSERT_TRUE(run(plain_library(), &plain) && run(fast_library(), &fast));
                ASSERT_EQ(plain, fast) << n << " points, stride " << stride;
            }
        }
    }
}

} // namespace
