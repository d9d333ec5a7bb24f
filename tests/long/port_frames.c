/*
 * Frames of one build of the library against those of another, for builds that cannot be loaded side by side.
 *
 *     port_frames write FILE      writes COUNT frames: per message the sent bits, then the samples, low byte first
 *     port_frames compare FILE    encodes the same messages, hears the frames of FILE, and counts what differs; of one
 *                                 in REPEATED it hears three repeats with two microphones, in noise, added up
 *
 * The named bands take turns.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kosc/core.h"

enum { COUNT = 1000, REPEATED = 97, MAX_BANDS = 16 };
enum { MESSAGE_LEN = 28, BITS = 768, SAMPLES = 11520, RECORD = BITS + 2 * SAMPLES };

static uint8_t message[MESSAGE_LEN];
static unsigned long heard;

static void on_messages(const decode_result_t* results, uint32_t count, uint32_t channel, void* user)
{
    (void)channel;
    (void)user;
    for (uint32_t i = 0; i < count; i++) {
        heard += memcmp(results[i].msg, message, MESSAGE_LEN) == 0;
    }
}

/* A linear congruential generator, with the multiplier of Knuth's MMIX. */
static int next_byte(uint64_t* state)
{
    *state = *state * UINT64_C(6364136223846793005) + UINT64_C(1442695040888963407);
    return (int)(*state >> 56);
}

static void next_message(void)
{
    static uint64_t state = 1;
    for (int i = 0; i < MESSAGE_LEN; i++) {
        message[i] = (uint8_t)next_byte(&state);
    }
}

static int make_bits(const soundcomm_paras_t* paras, uint8_t* bits)
{
    kom_vector_uint8* block = add_crc(message, MESSAGE_LEN, &paras->cfg.crc_cfg);
    kom_vector_uint8* plain = vector_byte_to_binary(block);
    kom_vector_uint8* coded = plain == NULL ? NULL : add_channel_code(paras, plain);
    kom_vector_uint8* spread = coded == NULL ? NULL : interleaver_encode(coded, paras->cfg.interleaver_cfg.stride);
    const int made = spread != NULL && spread->size == BITS;
    if (made) {
        memcpy(bits, spread->data, BITS);
    }
    kom_vector_uint8_free(block);
    kom_vector_uint8_free(plain);
    kom_vector_uint8_free(coded);
    kom_vector_uint8_free(spread);
    return made;
}

static int sample_at(const uint8_t* bytes, int i)
{
    const int value = bytes[2 * i] | bytes[2 * i + 1] << 8;
    return value < 32768 ? value : value - 65536;
}

/* Repeats of a frame for both channels, in noise of their own in which none decodes alone; 0, or -1. */
static int hear_repeats(soundcommu_handle_t* modem, const int16_t* frame)
{
    enum { PIECE = 960, PERIOD = 16 * PIECE, REPEATS = 3, LEAD = PERIOD, ALL = LEAD + REPEATS * PERIOD + 3 * PERIOD };
    enum { FAINT = 16, NOISE = 7, BYTES = 8 }; /* at NOISE = 3 each is heard alone, at 9 the sum still is */
    static uint64_t noise = 1;
    int16_t piece[PIECE];
    int failed = 0;
    for (int at = 0; at < ALL && !failed; at += PIECE) {
        for (int channel = 0; channel < 2 && !failed; channel++) {
            for (int i = 0; i < PIECE; i++) {
                const int place = (at + i - LEAD) % PERIOD;
                const int is_frame = at >= LEAD && at < LEAD + REPEATS * PERIOD && place < SAMPLES;
                int sum = -BYTES * 255 / 2;
                for (int n = 0; n < BYTES; n++) {
                    sum += next_byte(&noise);
                }
                piece[i] = (int16_t)((is_frame ? frame[place] / FAINT : 0) + NOISE * sum);
            }
            failed = ko_soundcommu_decode(modem, piece, sizeof piece, channel) != 0;
        }
    }
    return failed ? -1 : 0;
}

/* Makes a modem for every named band and returns how many there are; 0 when one cannot be made. */
static uint32_t make_modems(uint32_t combining, soundcommu_handle_t** modems)
{
    uint32_t count = 0;
    for (; count < MAX_BANDS && ko_soundcommu_get_band(count) != NULL; count++) {
        ko_soundcommu_options_t options;
        ko_soundcommu_default_options(&options, sizeof options);
        options.on_messages = on_messages;
        options.combining = combining;
        options.first_subcarrier = ko_soundcommu_get_band(count)->first_subcarrier;
        modems[count] = ko_soundcommu_init_with(&options);
        if (modems[count] == NULL) {
            return 0;
        }
    }
    return count;
}

int main(int argc, char** argv)
{
    static uint8_t other[RECORD], own[RECORD];
    static int16_t samples[SAMPLES];
    const int writes = argc == 3 && strcmp(argv[1], "write") == 0;
    FILE* const file = argc == 3 ? fopen(argv[2], writes ? "wb" : "rb") : NULL;
    log_level = 0;
    soundcommu_handle_t *modems[MAX_BANDS] = {0}, *pairs[MAX_BANDS] = {0};
    const uint32_t bands = make_modems(KOSC_COMBINING_OFF, modems);
    int failed = file == NULL || bands == 0 || make_modems(KOSC_COMBINING_TOGETHER, pairs) != bands;
    unsigned long bits = 0, differing = 0, repeated = 0, combined = 0;
    int largest = 0;
    for (int n = 0; n < COUNT && !failed; n++) {
        soundcommu_handle_t* const modem = modems[(uint32_t)n % bands];
        next_message();
        failed = !make_bits(modem->ctx[0]->tx_paras, own) ||
                 ko_soundcommu_encode(modem, message, MESSAGE_LEN, samples, sizeof samples) != 0;
        for (int i = 0; i < SAMPLES; i++) {
            own[BITS + 2 * i] = (uint8_t)((uint16_t)samples[i] & 0xFF);
            own[BITS + 2 * i + 1] = (uint8_t)((uint16_t)samples[i] >> 8);
        }
        failed = failed || (writes ? fwrite(own, RECORD, 1, file) : fread(other, RECORD, 1, file)) != 1;
        if (writes || failed) {
            continue;
        }
        for (int i = 0; i < BITS; i++) {
            bits += other[i] != own[i];
        }
        for (int i = 0; i < SAMPLES; i++) {
            const int step = abs(sample_at(other + BITS, i) - samples[i]);
            differing += step != 0;
            largest = step > largest ? step : largest;
            samples[i] = (int16_t)sample_at(other + BITS, i);
        }
        failed = ko_soundcommu_decode(modem, samples, sizeof samples, 0) != 0;
        if (n % REPEATED == 0 && !failed) {
            const unsigned long before = heard;
            failed = hear_repeats(pairs[(uint32_t)n % bands], samples) != 0;
            repeated++;
            combined += heard - before;
            heard = before;
        }
    }
    for (int i = 0; i < MAX_BANDS; i++) {
        ko_soundcommu_release(modems[i]);
        ko_soundcommu_release(pairs[i]);
    }
    failed = failed || (file != NULL && fclose(file) != 0);
    if (!writes && !failed) {
        printf("%d frames of %u bands: %lu bits differ, %lu of %d samples differ, by %d at most, %lu messages heard, "
               "%lu of %lu put together\n",
               COUNT, bands, bits, differing, COUNT * SAMPLES, largest, heard, combined, repeated);
        failed = bits != 0 || largest > 1 || heard != COUNT || combined != repeated;
    }
    return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
