// What each OFDM symbol of a frame carries.
#ifndef KOSC_CONFIG_FRAME_SYMBOLS_H
#define KOSC_CONFIG_FRAME_SYMBOLS_H

#include "kosc/context.h"

namespace kosc {

// A symbol's place among the frame's pilots or among its data symbols, counted from 0.
struct frame_symbol {
    bool is_pilot;
    uint32_t number;
};

// Symbol `index` of a frame. Before it lie floor((index + rate/2) / (rate + 1)) pilots; see is_pilot_index().
inline frame_symbol frame_symbol_at(const soundcomm_paras_t& paras, uint32_t index)
{
    const uint32_t rate = paras.cfg.pilot_cfg.data_pilot_rate;
    const auto pilots_before = static_cast<uint32_t>((uint64_t{index} + rate / 2) / (uint64_t{rate} + 1));
    const bool is_pilot = is_pilot_index(rate, index);
    return {is_pilot, is_pilot ? pilots_before : index - pilots_before};
}

// The pilot with that number: the synchronisation pilot is the first of a frame.
inline const pilot_t& pilot_at(const soundcomm_paras_t& paras, uint32_t number)
{
    return number == 0 ? paras.sync_pilot : paras.estimating_pilot;
}

} // namespace kosc

#endif
