// A receiver of the long runs, in any band, which notes what it takes for a frame.
#ifndef KOSC_TESTS_LONG_LISTENER_H
#define KOSC_TESTS_LONG_LISTENER_H

#include <array>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "kosc/kosc.hpp"

// Of the band, or the program ends.
inline soundcomm_cfg_t configuration_of(const char* band)
{
    ko_soundcommu_band_t found;
    soundcomm_cfg_t cfg;
    if (ko_soundcommu_find_band(band, &found) != 0 || !soundcomm_cfg_for_band(found.first_subcarrier, &cfg)) {
        std::exit(EXIT_FAILURE);
    }
    return cfg;
}

struct noted_frame {
    uint64_t sample;
    bool decoded, needed;      // the second look
    uint32_t attempts, offset; // of the second look; the sample modulo 2^32
    std::array<uint8_t, kosc::MESSAGE_BYTES> message;
};

class listener {
public:
    listener(uint32_t second_look, const soundcomm_cfg_t& cfg) : ctx_{kosc::make_receiving_context(second_look, cfg)}
    {
        soundcomm_set_frame_callback(ctx_.get(), note, this);
    }
    soundcomm_context_t* context() const { return ctx_.get(); }
    data_container* buffer() const { return soundcomm_get_datacontainer(ctx_->rx_paras, 0); }
    void hear(const int16_t* sound, size_t count)
    {
        result_set_t results{};
        if (soundcomm_receive(ctx_.get(), sound, static_cast<uint32_t>(count), &results) != 0) {
            std::puts("the receiver failed");
            std::exit(EXIT_FAILURE);
        }
    }
    // What was found since the last call.
    std::vector<noted_frame> take() { return std::exchange(found_, {}); }

private:
    static void note(const frame_report_t* report, void* user)
    {
        listener& self = *static_cast<listener*>(user);
        const sync_iter& search = self.buffer()->iter; // not begun where a crowd is expected, which has its own
        self.found_.push_back(
            {report->sample,
             report->verdict == 1,
             report->quality.needed,
             report->quality.attempts,
             search.container != nullptr ? sync_iter_get_global_offset(&search) : static_cast<uint32_t>(report->sample),
             {}});
        std::copy_n(report->msg, report->msg != nullptr ? report->msg_len : 0, self.found_.back().message.begin());
    }

    kosc::context_ptr ctx_;
    std::vector<noted_frame> found_;
};

#endif
