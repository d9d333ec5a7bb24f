// Owning guards for what the library hands out, so that a failing assertion leaks nothing.
#ifndef KOSC_TESTS_SUPPORT_OWNED_H
#define KOSC_TESTS_SUPPORT_OWNED_H

#include <memory>

#include "kosc/core.h"

template <auto Release> struct releaser {
    template <typename T> void operator()(T* object) const { Release(object); }
};
template <typename T, auto Release> using owned = std::unique_ptr<T, releaser<Release>>;

using bytes_ptr = owned<kom_vector_uint8, kom_vector_uint8_free>;
using doubles_ptr = owned<kom_vector, kom_vector_free>;
using complex_ptr = owned<kom_vector_complex, kom_vector_complex_free>;
using queue_ptr = owned<vector, vector_free>;
using code_ptr = owned<conv_code_t, conv_code_release>;
using punch_ptr = owned<punch_template_t, free_punch_template>;
using pattern_ptr = owned<phase_pattern, free_phase_pattern>;
using filter_ptr = owned<butterworth_bandpass, free_butterworth_bandpass>;
using container_ptr = owned<data_container, data_container_free>;
using context_ptr = owned<soundcomm_context_t, soundcomm_release>;
using handle_ptr = owned<soundcommu_handle_t, ko_soundcommu_release>;

#endif
