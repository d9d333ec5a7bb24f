#include "second_look/second_look_area.h"

#include <cmath>

#include "decode/crc_check.h"
#include "kosc/interleaver.h"
#include "math/constants.h"
#include "math/vector_family.h"

using namespace kosc;

namespace {

using look_ptr = owned<second_look_t, free_second_look>;

// Hands out the parts of one block; with no block it only counts.
template <typename T> class carver {
public:
    explicit carver(T* block) : block_(block) {}
    void take(T** part, uint64_t count)
    {
        *part = block_ == nullptr ? nullptr : block_ + used_;
        used_ += count;
    }
    uint64_t used() const { return used_; }

private:
    T* block_;
    uint64_t used_ = 0;
};

uint64_t carve_numbers(second_look_t* look, double* block)
{
    const uint64_t sc_num = look->paras->cfg.ofdm_cfg.sc_num;
    const uint64_t symbols = look->paras->frame.symbols;
    const uint64_t rank = look->smoother->rank;
    carver<double> parts{block};
    parts.take(&look->frame, look->paras->frame.frame_length);
    parts.take(&look->evening, sc_num);
    parts.take(&look->received, 2 * symbols * sc_num);
    parts.take(&look->sent, 2 * symbols * sc_num);
    parts.take(&look->coefficients, 2 * symbols * rank);
    parts.take(&look->joint, 2 * rank);
    parts.take(&look->own, 2 * rank);
    parts.take(&look->response, 2 * sc_num);
    parts.take(&look->phases, symbols);
    parts.take(&look->levels, 2 * uint64_t{look->paras->frame.data_symbols} * sc_num);
    parts.take(&look->soft, look->coded_len);
    parts.take(&look->work, 3 * sc_num);
    return parts.used();
}

uint64_t carve_octets(second_look_t* look, uint8_t* block)
{
    const size_t steps = look->coded_len / look->paras->conv_code->polynomial_num;
    const crc_cfg& crc = look->paras->cfg.crc_cfg;
    carver<uint8_t> parts{block};
    parts.take(&look->bits, steps);
    parts.take(&look->earlier_bits, steps);
    parts.take(&look->bytes, look->paras->frame.bytes);
    parts.take(&look->crc_scratch, crc_scratch_len(crc));
    parts.take(&look->crc_matches, crc.group);
    for (recovered_frame& last : look->recovered) {
        parts.take(&last.msg, look->paras->cfg.msg_byte_len);
    }
    return parts.used();
}

// Sends `bits` through the receiver's own de-interleaver and de-puncturing.
bool sort_bits(const soundcomm_paras_t& paras, const kom_vector_uint8* bits, uint8_t* coded, uint32_t coded_len)
{
    const bytes_ptr straight{interleaver_decode(bits, paras.cfg.interleaver_cfg.stride)};
    return straight && depunch_code(paras.punch_template, straight->data, straight->size, coded, coded_len);
}

// Learns where each code bit comes from by sorting the numbers of the frame's bits, one binary digit at a time, and
// last a frame of ones, which shows the places that nothing is sent for.
bool find_positions(second_look_t* look)
{
    const uint32_t frame_bits = 2 * look->paras->frame.re_num;
    const bytes_ptr plane{kom_vector_uint8_alloc(frame_bits)};
    const block_ptr<uint8_t> coded{alloc_array<uint8_t>(look->coded_len)};
    if (!plane || !coded) {
        return false;
    }
    for (uint32_t digit = 0; frame_bits >> digit != 0; ++digit) {
        for (uint32_t b = 0; b < frame_bits; ++b) {
            plane->data[b] = b >> digit & 1;
        }
        if (!sort_bits(*look->paras, plane.get(), coded.get(), look->coded_len)) {
            return false;
        }
        for (uint32_t j = 0; j < look->coded_len; ++j) {
            look->position[j] |= (coded[j] & 1U) << digit;
        }
    }
    memset_s(plane->data, frame_bits, 1, frame_bits);
    if (!sort_bits(*look->paras, plane.get(), coded.get(), look->coded_len)) {
        return false;
    }
    for (uint32_t j = 0; j < look->coded_len; ++j) {
        look->position[j] = coded[j] == 1 ? look->position[j] : NO_POSITION;
    }
    return true;
}

// Whether the frame has as many places for pilots as pilots. Where not, nothing can be encoded either.
bool holds_its_pilots(const soundcomm_paras_t& paras)
{
    uint32_t places = 0;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        places += is_pilot_index(paras.cfg.pilot_cfg.data_pilot_rate, i) ? 1 : 0;
    }
    return places == paras.frame.pilot_symbols;
}

// The pilots take their places among the sent values.
void place_pilots(const second_look_t& look)
{
    const soundcomm_paras_t& paras = *look.paras;
    const size_t row = size_t{2} * paras.cfg.ofdm_cfg.sc_num;
    uint32_t pilots = 0;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        if (is_pilot_index(paras.cfg.pilot_cfg.data_pilot_rate, i) && pilots < paras.frame.pilot_symbols) {
            const pilot_t& pilot = pilots++ == 0 ? paras.sync_pilot : paras.estimating_pilot;
            memcpy_s(look.sent + row * i, row * sizeof(double), pilot.sequence->data, row * sizeof(double));
        }
    }
}

// The fourth difference has the gain (2 - 2 cos w)^2.
void fill_evening(const second_look_t& look)
{
    const ofdm_cfg& ofdm = look.paras->cfg.ofdm_cfg;
    for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
        const double root_gain = 2 - 2 * std::cos(2 * PI * (ofdm.sc_start_idx + k) / ofdm.symbol_len);
        look.evening[k] = removes_low_sounds(ofdm) ? 1 / (root_gain * root_gain) : 1.0;
    }
}

} // namespace

namespace kosc {

second_look_t* make_second_look(const soundcomm_paras_t& paras)
{
    look_ptr look{alloc_record<second_look_t>()};
    if (!look || paras.conv_code == nullptr || !holds_its_pilots(paras)) {
        return nullptr;
    }
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    look->paras = &paras;
    look->coded_len = conv_code_encode_length(paras.conv_code, paras.frame.bits);
    look->smoother = channel_smoother_init(ofdm.sc_num, ofdm.symbol_len, ofdm.cp_len);
    look->search = drift_search_init(&paras, look->smoother);
    look->viterbi = soft_viterbi_init(paras.conv_code, look->coded_len / paras.conv_code->polynomial_num);
    look->position = alloc_zeroed<uint32_t>(look->coded_len);
    if (look->search == nullptr || look->viterbi == nullptr || look->position == nullptr) {
        return nullptr;
    }
    look->numbers = alloc_zeroed<double>(carve_numbers(look.get(), nullptr));
    look->octets = alloc_zeroed<uint8_t>(carve_octets(look.get(), nullptr));
    if (look->numbers == nullptr || look->octets == nullptr || !find_positions(look.get())) {
        return nullptr;
    }
    carve_numbers(look.get(), look->numbers);
    carve_octets(look.get(), look->octets);
    place_pilots(*look);
    fill_evening(*look);
    return look.release();
}

void free_second_look(second_look_t* look)
{
    if (look != nullptr) {
        channel_smoother_free(look->smoother);
        drift_search_free(look->search);
        soft_viterbi_free(look->viterbi);
        std::free(look->position);
        std::free(look->numbers);
        std::free(look->octets);
        std::free(look);
    }
}

} // namespace kosc
