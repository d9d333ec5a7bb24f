#include "kosc/sample_buffer.h"

#include <cmath>
#include <map>

#include "support/modem.h"

namespace {

// A small buffer: a frame's peak lies 39 positions behind its start, windows move on by 50.
struct layout {
    uint32_t corr_capacity = 400, frame_length = 100, sync_length = 40;
    rx_sync_paras sync_paras = {0.5, 10, 1};
    double_list pilot = {1, -3, 2, 4, -1, 0, 5, -2, 1, 3, -4, 2, 0, 1, -2, 3};
    uint32_t corr_len = 16;
    double high = 12000; // of the filter's band, from 6000 on
};

struct buffer {
    explicit buffer(const layout& l = {})
        : filter{create_butterworth_bandpass2(5, 1, 6000, l.high, 48000)},
          box{data_container_init(l.corr_capacity, l.frame_length, l.sync_length, l.sync_paras,
                                  l.pilot.empty() ? nullptr : l.pilot.data(), l.corr_len, filter.get())}
    {
    }
    data_container* operator->() const { return box.get(); }

    // Appends positions whose raw samples are numbered, with these correlation peaks among zeros.
    void put(uint32_t count, std::map<uint32_t, double> peaks = {}) const
    {
        for (uint32_t i = 0; i < count; ++i) {
            vector_push_back(box->data, box->corrcoef->size + box->removed_length);
            vector_push_back(box->filtered_data, 0.0);
            vector_push_back(box->data_norm, 0.0);
            vector_push_back(box->corrcoef, peaks[i]);
        }
    }
    // Offsets of all frames found, each reported as decoded or not.
    count_list walk(uint32_t state) const
    {
        count_list offsets;
        sync_iter* iter = data_container_begin(box.get());
        for (; !sync_iter_is_end(iter) && offsets.size() < 999; sync_iter_next(iter)) {
            offsets.push_back(sync_iter_get_global_offset(iter));
            EXPECT_EQ(data_container_get(iter)[0], offsets.back());
            EXPECT_EQ(iter->decode_state, KOSC_FRAME_NOT_DECODED);
            sync_iter_update_decode_state(iter, state);
        }
        EXPECT_EQ(data_container_get(iter), nullptr);
        return offsets;
    }

    filter_ptr filter;
    container_ptr box;
};

TEST(SampleBuffer, FindsTheFirstOfTheHighestPeaksAboveTheThreshold)
{
    const std::tuple<const char*, std::map<uint32_t, double>, count_list, text_list> cases[] = {
        {"exactly the threshold", {{60, 0.5}}, {}, {}},
        {"equal maxima just above it", {{50, 0.5000001}, {60, 0.5000001}}, {11}, {}},
        {"the higher one", {{50, 0.6}, {60, 0.9}}, {21}, {}},
        {"at the buffer's front", {{39, 0.9}}, {0}, {}},
        {"lost, then whole", {{38, 0.9}, {120, 0.8}}, {81}, {"INFO lost the data before sync 0, 38"}},
        {"behind a NaN", {{50, NAN}, {120, 0.7}, {150, 0.6}}, {81}, {}},
        {"behind a NaN at the window's end", {{96, NAN}, {98, 0.9}, {140, 0.95}}, {59}, {}},
        {"just whole", {{139, 0.9}}, {100}, {}},
        {"not yet whole", {{140, 0.9}}, {}, {"INFO no enough data to decode 101 200"}},
    };
    for (const auto& [what, peaks, offsets, info] : cases) {
        const buffer b;
        b.put(200, peaks);
        const log_capture log{KOSC_LEVEL_INFO};
        EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), offsets) << what;
        EXPECT_EQ(logged(), info) << what;
    }
}

// A rejected frame may be found once more: the next window begins 50 positions on, not behind the frame.
TEST(SampleBuffer, SkipsAFrameOnlyWhenItDecodedAndFindsItAgainOnceItIsWhole)
{
    const log_capture log;
    const buffer b;
    b.put(400, {{60, 0.9}, {160, 0.8}, {350, 0.7}});
    EXPECT_EQ(b.walk(KOSC_FRAME_NOT_DECODED), (count_list{21, 21, 121, 121}));
    EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), (count_list{21, 121}));
    data_container_rm_outdated(&b->iter);
    b.put(10);
    EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), count_list{});
    b.put(1);
    EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), count_list{311});
    b->iter.search_start = 500;
    data_container_rm_outdated(&b->iter);
    EXPECT_EQ(logged("ERROR"), text_list{"ERROR remove data(500) too long, 150, 150, 165, 165"});
    EXPECT_EQ(b->removed_length, 761U) << "counted, though not all of it was there";
    EXPECT_TRUE(data_container_check_buff_length(b.box.get(), 400));
    expect_logged({"DEBUG sync search next search_start: 0, corrcoef size: 400", "DEBUG peak is 60, 0.900000",
                   "DEBUG after search seart_start: 0, frame_start_in_corr: 21", "DEBUG Next search start is 50",
                   "DEBUG Next search start is 111", "DEBUG removed_length: 0, search_start: 261"});
}

TEST(SampleBuffer, CorrelatesEveryStepAndRefinesAPeakAsFarAsTheBufferReaches)
{
    layout stepped;
    stepped.sync_paras.corr_step = 3;
    for (const uint32_t peak : {1U, 50U, 99U}) {
        const buffer b{stepped};
        b.put(100, {{peak, 0.9}});
        const log_capture log{KOSC_LEVEL_INFO};
        data_container_begin(b.box.get());
        expect_logged({"INFO Adjacent peak_offset " + std::to_string(peak)});
        EXPECT_EQ(logged("ERROR"), peak == 99 ? text_list{"ERROR get filter data failed 115 100"} : text_list{});
        EXPECT_TRUE(data_container_recv(b.box.get(), 30000.0) && vector_back(b->corrcoef) != 0.0);
        EXPECT_TRUE(data_container_recv(b.box.get(), 30000.0) && vector_back(b->corrcoef) == 0.0);
    }
}

// The first window's refinement finds the peak at 49; the second window begins behind it, and must find it as well.
TEST(SampleBuffer, RefinesAPeakToAPositionBeforeItsWindowAndSearchesOn)
{
    layout stepped;
    stepped.sync_paras.corr_step = 3;
    const buffer b{stepped};
    b.put(250, {{51, 0.9}, {149, 0.8}});
    std::fill_n(b->data_norm->begin, 250, 1.0);
    std::copy_n(b->pilot_filtered, b->corr_len, b->filtered_data->begin + 49);
    const log_capture log{KOSC_LEVEL_INFO};
    EXPECT_EQ(b.walk(KOSC_FRAME_NOT_DECODED), (count_list{10, 10, 110}));
    EXPECT_EQ(logged()[1], "INFO Adjacent peak_offset 4294967295");
}

// The pilot at the very end of its frame: the next window lies out of the refinement's reach.
TEST(SampleBuffer, RefinesNoPeakToTheFrameThatItDecoded)
{
    layout late;
    late.sync_length = late.frame_length;
    late.sync_paras = {0.1, 10, 3};
    const buffer b{late};
    b.put(300, {{99, 0.9}, {101, 0.8}});
    std::fill_n(b->data_norm->begin, 300, 1.0);
    std::copy_n(b->pilot_filtered, b->corr_len, b->filtered_data->begin + 100);
    const log_capture quiet{0};
    EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), count_list{1});
}

TEST(SampleBuffer, HearsNothingInNearSilence)
{
    const buffer faint;
    for (const double x : layout{}.pilot) {
        EXPECT_TRUE(data_container_recv(faint.box.get(), 0.01 * x));
        EXPECT_EQ(vector_back(faint->corrcoef), 0.0);
    }
}

// On subnormal numbers many processors calculate a hundred times slower. The narrow band is that of one subcarrier, in
// which a click takes two seconds to die away.
TEST(SampleBuffer, HoldsNoSubnormalNumbersInDigitalSilence)
{
    for (const double high : {6000.0 + 6 * 46.875, 12000.0}) {
        for (const uint32_t piece : {1U, 100U}) {
            layout l;
            l.high = high;
            const buffer b{l};
            pcm block(piece, 30000);
            const log_capture quiet{0};
            const auto is_subnormal = [](double x) { return x != 0.0 && !std::isnormal(x); };
            uint32_t subnormal = 0;
            for (uint32_t heard = 0; heard < 200000; heard += piece) {
                piece == 1 ? data_container_recv(b.box.get(), block[0])
                           : data_container_recv_block(b.box.get(), block.data(), 1, piece);
                const double_list filtered = list(b->filtered_data->begin, vector_size(b->filtered_data));
                subnormal += std::any_of(b->filter->w, b->filter->w + b->filter->nw, is_subnormal) ||
                             std::any_of(filtered.begin(), filtered.end(), is_subnormal);
                data_container_begin(b.box.get())->search_start = vector_size(b->corrcoef);
                data_container_rm_outdated(&b->iter);
                block.assign(piece, 0);
            }
            EXPECT_EQ(subnormal, 0U) << high << ", in pieces of " << piece;
            EXPECT_EQ(list(b->filter->w, b->filter->nw), double_list(b->filter->nw));
        }
    }
}

// Here of no whole number of vector registers, and of one lane more than a window's energy has samples.
TEST(SampleBuffer, CorrelatesThePilotWithItselfToOne)
{
    layout odd;
    odd.pilot = {0, 300, -500, 200, 100, -400, 700, -600, 0, 100, 200, -300, 500, -200, 400, -100, 300, 600, -700};
    odd.corr_len = 19;
    const buffer b{odd};
    for (const double x : odd.pilot) {
        EXPECT_TRUE(data_container_recv(b.box.get(), x));
    }
    EXPECT_NEAR(vector_back(b->corrcoef), 1.0, 1e-12);
    vector_push_back(b->data_norm, 1.0);
    EXPECT_FALSE(data_container_recv(b.box.get(), 1.0)) << "no window belongs to that energy";
}

TEST(SampleBuffer, RefusesHistoriesThatDoNotFitAndLayoutsItCannotSearch)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    const auto fits = [](const std::function<void(const buffer&)>& spoil) {
        const buffer b;
        spoil(b);
        return data_container_check_buff_length(b.box.get(), 401);
    };
    const auto builds = [](const std::function<void(layout&)>& spoil) {
        layout bad;
        spoil(bad);
        return buffer{bad}.box != nullptr;
    };
    const std::string paras = "invalid sync handler paras";
    expect_refusals({
        {[&] { return fits([](auto& b) { vector_push_back(b->data_norm, 0); }); },
         {"corrcoef len(0) should be same as data_norm (1)"}},
        {[&] { return fits([](auto& b) { vector_remove_front(b->data, 1); }); },
         {"data len(14) should be bigger than corr_len(16)"}},
        {[&] { return fits([](auto& b) { vector_push_back(b->data, 0); }); },
         {"data len(16) != corrcoef(0) + corr_len(16) -1"}},
        {[&] { return fits([](auto&) {}); }, {"data len(401) > unused (400)"}},
        {[&] { return builds([](auto& l) { l.corr_capacity = (1 << 24) - 15; }); }, {paras}},
        {[&] { return builds([](auto& l) { l.corr_len = 0; }); }, {paras}},
        {[&] { return builds([](auto& l) { l.sync_length = 101; }); }, {paras}},
        {[&] { return builds([](auto& l) { l.frame_length = 0x80000000; }); }, {paras}},
        {[&] { return builds([](auto& l) { l.sync_paras.corr_step = 0; }); }, {paras}},
        {[&] { return builds([](auto& l) { l.pilot.clear(); }); }, {paras}},
        {[&] { return builds([](auto& l) { l.pilot.assign(16, 0.0); }); }, {"pilot_norm should not be zero"}},
    });
}

// However long the margin, the search moves on, and passes a decoded frame's own peak.
TEST(SampleBuffer, AlwaysMovesOn)
{
    const std::pair<uint32_t, uint32_t> cases[] = {{40, 59}, {40, 60}, {40, 1000}, {100, 0}, {100, UINT32_MAX}};
    for (const auto& [sync_length, margin] : cases) {
        SCOPED_TRACE(testing::Message() << sync_length << ", " << margin);
        layout l;
        l.sync_length = sync_length;
        l.sync_paras.search_margin = margin;
        const buffer b{l};
        b.put(400, {{99, 0.9}, {299, 0.8}});
        const log_capture log{KOSC_LEVEL_ERROR};
        EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), (count_list{100 - sync_length, 300 - sync_length}));
        EXPECT_LT(b.walk(KOSC_FRAME_NOT_DECODED).size(), 999U);
    }
}

} // namespace
