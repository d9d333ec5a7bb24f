// The modem's built-in configuration in figures, as the library tells them.
#ifndef KOSC_INSPECT_MODEM_H
#define KOSC_INSPECT_MODEM_H

#include <cstdint>
#include <memory>

#include "kosc/receiver.h"

namespace kosc_inspect {

struct modem_facts {
    double rate;                // samples a second
    uint32_t frame_length;      // samples
    double band_low, band_high; // Hz of the lowest and the highest subcarrier
};

const modem_facts& modem();

struct context_releaser {
    void operator()(soundcomm_context_t* context) const { soundcomm_release(context); }
};
using context_ptr = std::unique_ptr<soundcomm_context_t, context_releaser>;

// A receiver of one channel; throws when it cannot be set up.
context_ptr make_receiver(uint32_t second_look);

} // namespace kosc_inspect

#endif
