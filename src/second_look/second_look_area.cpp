#include "second_look/second_look_area.h"

#include "platform/owned.h"

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

uint64_t carve_doubles(second_look_t* look, double* block)
{
    const uint64_t sc_num = look->paras->cfg.ofdm_cfg.sc_num;
    const uint64_t symbols = look->paras->frame.symbols;
    const uint64_t rank = look->smoother->rank;
    frame_channel& channel = look->channel;
    carver<double> parts{block};
    parts.take(&channel.samples, look->paras->frame.frame_length);
    parts.take(&channel.tilt_gain, sc_num);
    parts.take(&channel.received, 2 * symbols * sc_num);
    parts.take(&channel.coefficients, 2 * symbols * rank);
    parts.take(&channel.joint, 2 * rank);
    parts.take(&channel.phases, symbols);
    parts.take(&channel.weights, symbols);
    parts.take(&channel.response, 2 * sc_num);
    parts.take(&channel.work, 3 * sc_num);
    parts.take(&look->llr, 2 * uint64_t{look->paras->frame.data_symbols} * sc_num);
    parts.take(&look->sent, 2 * symbols * sc_num);
    return parts.used();
}

uint64_t carve_bytes(second_look_t* look, uint8_t* block)
{
    carver<uint8_t> parts{block};
    parts.take(&look->earlier_bits, look->decoder.step_num);
    for (recovered_frame& last : look->recovered) {
        parts.take(&last.msg, look->paras->cfg.msg_byte_len);
    }
    return parts.used();
}

// Whether the frame has as many places for pilots as pilots. Where not, nothing can be encoded either.
bool holds_its_pilots(const soundcomm_paras_t& paras)
{
    uint32_t places = 0;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        places += is_pilot(paras, i) ? 1 : 0;
    }
    return places == paras.frame.pilot_symbols;
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
    look->smoother = channel_smoother_init(ofdm.sc_num, ofdm.symbol_len, ofdm.cp_len);
    look->search = drift_search_init(&paras, look->smoother);
    if (look->search == nullptr || !init_soft_decoder(paras, &look->decoder)) {
        return nullptr;
    }
    look->doubles = alloc_zeroed<double>(carve_doubles(look.get(), nullptr));
    look->bytes = alloc_zeroed<uint8_t>(carve_bytes(look.get(), nullptr));
    if (look->doubles == nullptr || look->bytes == nullptr) {
        return nullptr;
    }
    carve_doubles(look.get(), look->doubles);
    carve_bytes(look.get(), look->bytes);
    look->channel.paras = &paras;
    look->channel.smoother = look->smoother;
    init_tilt_gain(&look->channel);
    place_pilots(paras, look->sent);
    return look.release();
}

void free_second_look(second_look_t* look)
{
    if (look != nullptr) {
        channel_smoother_free(look->smoother);
        drift_search_free(look->search);
        release_soft_decoder(&look->decoder);
        std::free(look->doubles);
        std::free(look->bytes);
        std::free(look);
    }
}

} // namespace kosc
