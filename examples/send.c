/* Writes one message as a WAV file: send "text of up to 28 bytes" out.wav */
#include <kosc/kosc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { MESSAGE_BYTES = 28, HEADER_BYTES = 44 };

static void on_log_line(const char* line) { fprintf(stderr, "%s", line); }

static void put_le(uint8_t* to, uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; i++) {
        to[i] = (uint8_t)(value >> 8 * i);
    }
}

/* WAV files are little-endian whatever the processor is. */
static int write_wav(const char* path, const int16_t* samples, uint32_t count, const audio_para_t* format)
{
    const uint32_t frame_bytes = format->channel_num * format->bit_depth / 8;
    uint8_t header[HEADER_BYTES] = "RIFF....WAVEfmt ....................data....";
    put_le(header + 4, HEADER_BYTES - 8 + 2 * count, 4);
    put_le(header + 16, 16, 4); /* bytes of the format that follow */
    put_le(header + 20, 1, 2);  /* PCM */
    put_le(header + 22, format->channel_num, 2);
    put_le(header + 24, format->sample_rate, 4);
    put_le(header + 28, format->sample_rate * frame_bytes, 4);
    put_le(header + 32, frame_bytes, 2);
    put_le(header + 34, format->bit_depth, 2);
    put_le(header + 40, 2 * count, 4);
    FILE* file = fopen(path, "wb");
    int written = file != NULL && fwrite(header, 1, HEADER_BYTES, file) == HEADER_BYTES;
    for (uint32_t i = 0; written && i < count; i++) {
        uint8_t sample[2];
        put_le(sample, (uint16_t)samples[i], 2);
        written = fwrite(sample, 1, 2, file) == 2;
    }
    return (file == NULL || fclose(file) == 0) && written;
}

int main(int argc, char** argv)
{
    if (argc != 3 || strlen(argv[1]) > MESSAGE_BYTES) {
        fprintf(stderr, "use: send \"text of up to 28 bytes\" out.wav\n");
        return 2;
    }
    uint8_t message[MESSAGE_BYTES] = {0}; /* a shorter text is padded with zeros */
    memcpy(message, argv[1], strlen(argv[1]));
    audio_para_t play, record;
    ko_soundcommu_register_log(on_log_line);
    if (ko_soundcommu_get_audio_para(&play, &record) != 0) {
        return EXIT_FAILURE;
    }
    ko_soundcommu_options_t options;
    ko_soundcommu_default_options(&options, sizeof options); /* no callback: this host only sends */
    soundcommu_handle_t* modem = ko_soundcommu_init_with(&options);
    int16_t* frame = malloc(play.frame_bytes);
    const int encoded = modem != NULL && frame != NULL &&
                        ko_soundcommu_encode(modem, message, MESSAGE_BYTES, frame, play.frame_bytes) == 0;
    const int written = encoded && write_wav(argv[2], frame, play.frame_bytes / 2, &play);
    if (encoded && !written) {
        perror(argv[2]);
    }
    free(frame);
    ko_soundcommu_release(modem);
    return written ? EXIT_SUCCESS : EXIT_FAILURE;
}
