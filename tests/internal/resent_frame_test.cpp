// A frame as it is made again to be taken out of what was received.
#include "cancel/resent_frame.h"

#include <complex>

#include <gtest/gtest.h>

#include "channels.h"
#include "kosc/kosc.hpp"
#include "math/constants.h"

namespace {

using namespace kosc;
using complex = std::complex<double>;

// Each value against the sum of the subcarriers at the time that the clock tells. A frame that is told from another
// 20 dB below it must be right to far less than that.
TEST(ResentFrame, IsTheSumOfItsSubcarriersByAnyClock)
{
    log_level = 0;
    const context_ptr ctx = make_receiving_context();
    const soundcomm_paras_t& paras = *ctx->rx_paras;
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const uint32_t length = ofdm.symbol_len + ofdm.cp_len;
    baseband band;
    ASSERT_TRUE(init_baseband(paras, &band));
    kosc_link::random_source random{1};
    std::vector<complex> sent(paras.frame.symbols * ofdm.sc_num);
    for (complex& z : sent) {
        z = std::polar(1.0, 2 * PI * random.uniform());
    }
    const struct {
        double rate;
        double rate_change;
        double error;
    } cases[] = {{0, 0, 1e-15}, {1e-4, 0, 1e-9}, {-1e-4, 4e-9, 1e-8}, {1e-3, 0, 3e-6}, {-1e-3, 2e-8, 3e-6}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "rate " << c.rate << ", its change " << c.rate_change);
        const frame_clock clock = make_clock(paras, c.rate, c.rate_change);
        std::vector<complex> resent(band.frame_len);
        resend_frame(paras, band, reinterpret_cast<double*>(sent.data()), clock,
                     reinterpret_cast<double*>(resent.data()));
        double energy = 0.0, error = 0.0;
        for (uint32_t m = 0; m < band.frame_len; ++m) {
            const double time = clock.sent_time(m * band.decimation);
            const double symbol = std::floor(time / length);
            const double in_symbol = time - symbol * length;
            const double fade = paras.cfg.fade_cfg.len;
            if (symbol < 0 || symbol >= paras.frame.symbols || in_symbol < fade || in_symbol >= length - fade) {
                continue;
            }
            complex sum = 0.0;
            for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
                const double turns = (ofdm.sc_start_idx + k) * (in_symbol - ofdm.cp_len) / ofdm.symbol_len;
                sum += sent[static_cast<size_t>(symbol) * ofdm.sc_num + k] * std::polar(1.0, 2 * PI * turns);
            }
            sum *= std::polar(1.0, -band.middle * m * band.decimation);
            energy += std::norm(sum);
            error += std::norm(sum - resent[m]);
        }
        EXPECT_LT(error, c.error * energy);
    }
}

} // namespace
