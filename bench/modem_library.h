// The library in its two forms, loaded side by side.
#ifndef KOSC_BENCH_MODEM_LIBRARY_H
#define KOSC_BENCH_MODEM_LIBRARY_H

#include "dynamic_library.h"
#include "kosc/core.h"

#define KOSC_LOADED(name) decltype(&::name) name = reinterpret_cast<decltype(&::name)>(find(#name))

// The functions of one form of the library. Symbols of the two forms never mix: each calls its own.
class modem_library : dynamic_library {
public:
    using dynamic_library::dynamic_library;

    KOSC_LOADED(soundcomm_set_log_level);
    KOSC_LOADED(kom_fft_complex_radix2_forward);
    KOSC_LOADED(kom_fft_complex_radix2_inverse);
    KOSC_LOADED(conv_code_init);
    KOSC_LOADED(conv_code_release);
    KOSC_LOADED(conv_code_decode_hard);
    KOSC_LOADED(conv_code_free_data);
    KOSC_LOADED(soundcomm_init);
    KOSC_LOADED(soundcomm_release);
    KOSC_LOADED(soundcomm_init_receive);
    KOSC_LOADED(soundcomm_receive);
    KOSC_LOADED(soundcomm_decode);
    KOSC_LOADED(data_container_recv);
    KOSC_LOADED(data_container_recv_block);
    KOSC_LOADED(data_container_reset);
    KOSC_LOADED(data_container_begin);
    KOSC_LOADED(sync_iter_next);
    KOSC_LOADED(data_container_rm_outdated);
    KOSC_LOADED(soundcomm_encode);
    KOSC_LOADED(soundcomm_make_audio);
    KOSC_LOADED(ko_soundcommu_init);
    KOSC_LOADED(ko_soundcommu_release);
    KOSC_LOADED(ko_soundcommu_encode);
    KOSC_LOADED(ko_soundcommu_decode);
};

#undef KOSC_LOADED

inline const modem_library& plain_library()
{
    static const modem_library library = [] {
        const modem_library plain{KOSC_PLAIN_LIBRARY};
        plain.soundcomm_set_log_level(0); // it has a logger of its own
        return plain;
    }();
    return library;
}

inline const modem_library& fast_library()
{
    // The one that the program is linked with.
    static const modem_library library{nullptr};
    return library;
}

#endif
