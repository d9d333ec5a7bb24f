#include "kosc/sample_buffer.h"

#include <cmath>
#include <map>
#include <numeric>
#include <random>

#include "support/modem.h"

namespace {

// A small buffer: a frame's peak lies 39 positions behind its start, windows move on by 50.
struct layout {
    uint32_t corr_capacity = 400, frame_length = 100, sync_length = 40;
    rx_sync_paras sync_paras = {0.5, 10, 1};
    double_list pilot = {1, -3, 2, 4, -1, 0, 5, -2, 1, 3, -4, 2, 0, 1, -2, 3};
    uint32_t corr_len = 16;
};

struct buffer {
    explicit buffer(const layout& l = {})
        : filter{create_butterworth_bandpass2(5, 1, 6000, 12000, 48000)},
          box{data_container_init(l.corr_capacity, l.frame_length, l.sync_length, l.sync_paras,
                                  l.pilot.empty() ? nullptr : l.pilot.data(), l.corr_len, filter.get())}
    {
    }
    data_container* operator->() const { return box.get(); }
    double_list correlation() const { return list(box->corrcoef->begin, box->corrcoef->size); }

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
    void hear(const double_list& samples, double scale = 1.0) const
    {
        for (const double x : samples) {
            EXPECT_TRUE(data_container_recv(box.get(), scale * x));
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
        sync_iter_update_decode_state(iter, 7);
        EXPECT_NE(iter->decode_state, 7U);
        return offsets;
    }

    filter_ptr filter;
    container_ptr box;
};

double_list noise(size_t count)
{
    std::mt19937 random{71};
    double_list all(count);
    std::generate(all.begin(), all.end(), [&] { return static_cast<double>(random() % 8192) - 4096; });
    return all;
}

TEST(SampleBuffer, FindsTheFirstOfTheHighestPeaksAboveTheThreshold)
{
    const struct {
        const char* what;
        std::map<uint32_t, double> peaks;
        count_list offsets;
        text_list info;
    } cases[] = {
        {"exactly the threshold", {{60, 0.5}}, {}, {}},
        {"just above it", {{60, 0.5000001}}, {21}, {}},
        {"equal maxima", {{50, 0.9}, {60, 0.9}}, {11}, {}},
        {"the higher one", {{50, 0.6}, {60, 0.9}}, {21}, {}},
        {"at the buffer's front", {{39, 0.9}}, {0}, {}},
        {"its start is gone", {{38, 0.9}}, {}, {"INFO lost the data before sync 0, 38"}},
        {"lost, then whole", {{20, 0.9}, {120, 0.8}}, {81}, {"INFO lost the data before sync 0, 20"}},
        {"just whole", {{139, 0.9}}, {100}, {}},
        {"not yet whole", {{140, 0.9}}, {}, {"INFO no enough data to decode 101 200"}},
        {"not yet in a window", {{199, 0.9}}, {}, {"INFO no enough data to decode 160 200"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const buffer b;
        b.put(200, c.peaks);
        const log_capture log{KOSC_LEVEL_INFO};
        EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), c.offsets);
        EXPECT_EQ(logged(), c.info);
    }
}

// A rejected frame may be found once more: the next window begins 50 positions on, not behind the frame.
TEST(SampleBuffer, SkipsAFrameOnlyWhenItDecoded)
{
    const log_capture log;
    const buffer b;
    b.put(400, {{60, 0.9}, {160, 0.8}});
    EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), (count_list{21, 121}));
    EXPECT_TRUE(log_capture::has("DEBUG", "Next search start is 111")) << "10 samples before the end";
    EXPECT_EQ(b.walk(KOSC_FRAME_NOT_DECODED), (count_list{21, 21, 121, 121}));
    for (const char* const line : {"sync search next search_start: 0, corrcoef size: 400", "peak is 60, 0.900000",
                                   "after search seart_start: 0, frame_start_in_corr: 21", "Next search start is 50"}) {
        EXPECT_TRUE(log_capture::has("DEBUG", line)) << line;
    }
}

TEST(SampleBuffer, FindsAFrameAgainOnceItIsWhole)
{
    const log_capture log;
    const buffer b;
    b.put(200, {{150, 0.9}});
    EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), count_list{});
    data_container_rm_outdated(&b->iter);
    EXPECT_TRUE(log_capture::has("DEBUG", "removed_length: 0, search_start: 100"));
    b.put(10);
    EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), count_list{});
    b.put(1);
    EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), count_list{111});
    b->iter.search_start = 500;
    data_container_rm_outdated(&b->iter);
    EXPECT_TRUE(log_capture::has("ERROR", "remove data(500) too long, 111, 111, 126, 126"));
    EXPECT_EQ(b->removed_length, 600U) << "counted, though not all of it was there";
    EXPECT_TRUE(data_container_check_buff_length(b.box.get(), 400));
}

TEST(SampleBuffer, CorrelatesWhateverTheLevelAndHearsNothingInSilence)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    for (const double scale : {0.0, 0.01, 10.0, -1000.0}) {
        const buffer b;
        b.hear(layout{}.pilot, scale);
        // The energy under the root is that of the newest corr_len - 1 samples, so the pilot's first one is missing.
        const double whole = 1 / std::sqrt(1 - b->pilot_filtered[0] * b->pilot_filtered[0]);
        EXPECT_NEAR(vector_back(b->corrcoef), std::fabs(scale) > 1 ? whole : 0.0, 1e-9);
        b.hear(noise(50), scale);
        const double* const newest = vector_view(b->filtered_data, -15, 15);
        const double energy = std::inner_product(newest, newest + 15, newest, 0.0);
        EXPECT_NEAR(vector_back(b->data_norm), energy, 1e-9 * energy) << "the sum runs on, and rounds";
    }
}

TEST(SampleBuffer, CorrelatesOnlyEveryStep)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    layout every_third;
    every_third.sync_paras.corr_step = 3;
    const buffer full, sparse{every_third};
    full.hear(noise(100));
    sparse.hear(noise(100));
    for (uint32_t k = 0; k < 100; ++k) {
        EXPECT_EQ(sparse.correlation()[k], k % 3 == 0 ? full.correlation()[k] : 0.0) << k;
    }
}

TEST(SampleBuffer, RefinesAPeakAsFarAsTheBufferReaches)
{
    layout stepped;
    stepped.sync_paras.corr_step = 3;
    for (const uint32_t peak : {1U, 50U, 99U}) {
        const buffer b{stepped};
        b.put(100, {{peak, 0.9}});
        const log_capture log{KOSC_LEVEL_INFO};
        data_container_begin(b.box.get());
        EXPECT_TRUE(log_capture::has("INFO", "Adjacent peak_offset " + std::to_string(peak)));
        EXPECT_EQ(log_capture::has("ERROR", "get filter data failed 115 100"), peak == 99);
    }
}

TEST(SampleBuffer, StartsAnewWhenReset)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    const buffer used, fresh;
    used.hear(noise(400));
    const double_list full = used.correlation();
    data_container_recv(used.box.get(), 30000.0);
    EXPECT_EQ(used.correlation(), full) << "no more fits";
    used->removed_length = 5;
    data_container_reset(used.box.get());
    EXPECT_EQ(used->removed_length, 0U);
    EXPECT_EQ(data_container_unused(used.box.get()), data_container_capacity(used.box.get()));
    used.hear(noise(50));
    fresh.hear(noise(50));
    EXPECT_EQ(used.correlation(), fresh.correlation());
}

TEST(SampleBuffer, ReportsHistoriesThatDoNotFit)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    const auto fits = [](const std::function<void(const buffer&)>& spoil) {
        const buffer b;
        spoil(b);
        return data_container_check_buff_length(b.box.get(), 401);
    };
    expect_refusals({
        {[&] { return fits([](auto& b) { vector_push_back(b->data_norm, 0); }); },
         {"corrcoef len(0) should be same as data_norm (1)"}},
        {[&] { return fits([](auto& b) { vector_remove_front(b->data, 1); }); },
         {"data len(14) should be bigger than corr_len(16)"}},
        {[&] { return fits([](auto& b) { vector_push_back(b->data, 0); }); },
         {"data len(16) != corrcoef(0) + corr_len(16) -1"}},
        {[&] { return fits([](auto&) {}); }, {"data len(401) > unused (400)"}},
    });
    const buffer b;
    EXPECT_TRUE(data_container_check_buff_length(b.box.get(), 400));
    vector_remove_front(b->filtered_data, 1);
    expect_refusals({{[&] { return data_container_recv(b.box.get(), 1.0); }, {"get filter data failed 15 0"}}});
}

TEST(SampleBuffer, RefusesALayoutItCannotSearch)
{
    const log_capture log;
    const auto builds = [](const std::function<void(layout&)>& spoil) {
        layout bad;
        spoil(bad);
        return buffer{bad}.box != nullptr;
    };
    const std::string paras = "invalid sync handler paras";
    expect_refusals({
        {[&] { return builds([](layout& l) { l.corr_capacity = 0; }); }, {paras}},
        {[&] { return builds([](layout& l) { l.corr_capacity = 0x7FFFFFF8; }); }, {paras}},
        {[&] { return builds([](layout& l) { l.corr_len = 0; }); }, {paras}},
        {[&] { return builds([](layout& l) { l.sync_length = 0; }); }, {paras}},
        {[&] { return builds([](layout& l) { l.sync_length = 101; }); }, {paras}},
        {[&] { return builds([](layout& l) { l.frame_length = 0x80000000; }); }, {paras}},
        {[&] { return builds([](layout& l) { l.sync_paras.corr_step = 0; }); }, {paras}},
        {[&] { return builds([](layout& l) { l.pilot.clear(); }); }, {paras}},
        {[&] { return builds([](layout& l) { l.pilot.assign(16, 0.0); }); }, {"pilot_norm should not be zero"}},
        {[] {
             return data_container_init(9, 9, 4, {0.5, 1, 1}, layout{}.pilot.data(), 9, nullptr) != nullptr;
         },
         {paras}},
    });
    data_container_free(nullptr);
}

// However long the margin, the search moves on, and passes a decoded frame's own peak.
TEST(SampleBuffer, AlwaysMovesOn)
{
    const struct {
        uint32_t sync_length, margin, step;
    } cases[] = {{40, 10, 50}, {40, 59, 1}, {40, 60, 60}, {40, 1000, 60}, {100, 0, 1}, {100, UINT32_MAX, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.sync_length << ", " << c.margin);
        layout l;
        l.sync_length = c.sync_length;
        l.sync_paras.search_margin = c.margin;
        const buffer b{l};
        EXPECT_EQ(b->search_step, c.step);
        b.put(400, {{99, 0.9}, {299, 0.8}});
        const log_capture log{KOSC_LEVEL_ERROR};
        const uint32_t peak = c.sync_length - 1;
        EXPECT_EQ(b.walk(KOSC_FRAME_DECODED), (count_list{99 - peak, 299 - peak}));
        EXPECT_LT(b.walk(KOSC_FRAME_NOT_DECODED).size(), 999U);
    }
}

} // namespace
