/* Prints the messages in a WAV file of 16-bit PCM at 48000 Hz with one or two channels: receive in.wav */
#include <kosc/kosc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { BLOCK = 480, CHANNELS = 2, RATE = 48000, FRAME_SAMPLES = 11520 };

/* A message is any 28 bytes; this host prints them as text. */
static void print(const decode_result_t* results, uint32_t count, uint32_t channel, void* heard)
{
    for (uint32_t i = 0; i < count; i++) {
        printf("channel %u: %.*s\n", (unsigned)channel, (int)results[i].len, (const char*)results[i].msg);
    }
    *(uint32_t*)heard += count;
}

static void on_log_line(const char* line) { fprintf(stderr, "%s", line); }

static uint32_t get_le(const uint8_t* from, int bytes)
{
    uint32_t value = 0;
    for (int i = 0; i < bytes; i++) {
        value |= (uint32_t)from[i] << 8 * i;
    }
    return value;
}

/* Reads chunks up to the samples; returns the number of channels, or 0 when the file is of another kind. */
static unsigned open_samples(FILE* file)
{
    uint8_t head[12], chunk[8], format[16];
    unsigned channels = 0;
    if (fread(head, 1, 12, file) != 12 || memcmp(head, "RIFF", 4) != 0 || memcmp(head + 8, "WAVE", 4) != 0) {
        return 0;
    }
    while (fread(chunk, 1, 8, file) == 8 && memcmp(chunk, "data", 4) != 0) {
        uint32_t left = get_le(chunk + 4, 4);
        if (memcmp(chunk, "fmt ", 4) == 0 && left >= 16 && fread(format, 1, 16, file) == 16) {
            const int fits = get_le(format, 2) == 1 && get_le(format + 4, 4) == RATE && get_le(format + 14, 2) == 16;
            channels = fits ? get_le(format + 2, 2) : 0;
            left -= 16;
        }
        fseek(file, (long)(left + left % 2), SEEK_CUR);
    }
    return channels <= CHANNELS ? channels : 0;
}

/* Separates the channels of one block; what lies behind the file's end is silence. */
static size_t read_block(FILE* file, unsigned channels, int16_t block[CHANNELS][BLOCK])
{
    uint8_t bytes[2 * CHANNELS * BLOCK] = {0};
    const size_t count = fread(bytes, 2 * channels, BLOCK, file);
    for (unsigned i = 0; i < BLOCK * channels; i++) {
        block[i % channels][i / channels] = (int16_t)get_le(bytes + 2 * i, 2);
    }
    return count;
}

int main(int argc, char** argv)
{
    FILE* file = argc == 2 ? fopen(argv[1], "rb") : NULL;
    const unsigned channels = file != NULL ? open_samples(file) : 0;
    if (channels == 0) {
        fprintf(stderr, "use: receive in.wav, with 16-bit PCM at 48000 Hz in one or two channels\n");
        if (file != NULL) {
            fclose(file);
        }
        return 2;
    }
    ko_soundcommu_register_log(on_log_line);
    log_level = KOSC_LEVEL_WARN; /* else each block has lines of its own */
    uint32_t heard = 0;
    ko_soundcommu_options_t options;
    ko_soundcommu_default_options(&options, sizeof options);
    options.on_messages = print;
    options.user = &heard;
    options.second_look = 1;
    soundcommu_handle_t* modem = ko_soundcommu_init_with(&options);
    int failed = modem == NULL;
    int16_t block[CHANNELS][BLOCK];
    /* A frame is found once the search window behind it is full: two frames of silence follow the recording. */
    for (int behind = 0; !failed && behind < 2 * FRAME_SAMPLES;) {
        behind += read_block(file, channels, block) == 0 ? BLOCK : 0;
        for (unsigned channel = 0; channel < channels && !failed; channel++) {
            failed = ko_soundcommu_decode(modem, block[channel], (int)sizeof block[channel], (int)channel) != 0;
        }
    }
    ko_soundcommu_release(modem);
    fclose(file);
    return failed ? EXIT_FAILURE : heard == 0;
}
