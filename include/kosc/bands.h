/**
 * @file
 * Bands: where in the spectrum a modem puts its subcarriers, and the bands that have a name.
 *
 * All 64 subcarriers lie side by side, 46.875 Hz apart, so a band is known by its first one, and spans 2953 Hz from
 * there. Any band between 250 and 23500 Hz will do, that is any first subcarrier from 6 to 438; sender and receiver
 * must use the same. The built-in configuration uses 384: 18000 to 20953 Hz.
 */
#ifndef KOSC_BANDS_H
#define KOSC_BANDS_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

struct soundcomm_cfg_t;

/** A band. This record does not grow in 1.x. */
typedef struct ko_soundcommu_band_t {
    const char* name;          /**< static; empty for a band that has none */
    const char* use;           /**< static; what it is for, in a line of English; empty for a band without a name */
    uint32_t first_subcarrier; /**< what options and configurations hold */
    double low_hz;             /**< frequency of the first subcarrier */
    double high_hz;            /**< frequency of the last one */
} ko_soundcommu_band_t;

/** The bands that have a name, from the lowest up: static records number 0, 1, ...; null behind the last. */
KOSC_API const ko_soundcommu_band_t* ko_soundcommu_get_band(uint32_t index);

/**
 * Finds the band that a person asks for.
 *
 * @param text  the name of a band ("voice"), or where a band begins in Hz ("2000", "2015.625"), which is moved to the
 *              nearest subcarrier; whatever the locale, the decimal point is a point
 * @param band  filled; with name and use too where the band found is one that has them
 * @return 0, or -1 with one ERROR message and nothing written: "text or band is NULL", "no band is called %s; a band is
 *         telephone, voice, audible, high, near-ultrasonic or where it begins in Hz" (the first 32 bytes of the text),
 *         or that of soundcomm_cfg_for_band() for one that does not lie between 250 and 23500 Hz
 */
KOSC_API int ko_soundcommu_find_band(const char* text, ko_soundcommu_band_t* band);

/**
 * The built-in configuration, moved to another band.
 *
 * @param first_subcarrier  6 to 438
 * @param cfg               filled; soundcomm_init() takes it for both directions
 * @return false, nothing written, with ERROR "cfg is NULL" or "a band from subcarrier %u on does not lie between 250
 *         and 23500 Hz; the first subcarrier is 6 to 438"
 */
KOSC_API bool soundcomm_cfg_for_band(uint32_t first_subcarrier, struct soundcomm_cfg_t* cfg);

#ifdef __cplusplus
}
#endif

#endif
