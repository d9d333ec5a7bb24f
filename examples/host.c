/* A host's six calls: a message becomes one frame of sound, and the sound becomes the message again. */
#include <kosc/kosc.h>
#include <stdio.h>
#include <stdlib.h>

static void on_messages(const decode_result_t* results, uint32_t count)
{
    for (uint32_t i = 0; i < count; i++) {
        printf("heard: %.*s\n", (int)results[i].len, (const char*)results[i].msg);
    }
}

static void on_log_line(const char* line) { fprintf(stderr, "%s", line); }

int main(void)
{
    const uint8_t message[28] = "hello over sound"; /* always 28 bytes; here the rest are zeros */
    audio_para_t play, record;
    ko_soundcommu_register_log(on_log_line);
    if (ko_soundcommu_get_audio_para(&play, &record) != 0) {
        return EXIT_FAILURE;
    }
    soundcommu_handle_t* modem = ko_soundcommu_init(on_messages, on_messages); /* one callback a recorded channel */
    int16_t* frame = malloc(play.frame_bytes);
    int failed = modem == NULL || frame == NULL ||
                 ko_soundcommu_encode(modem, message, sizeof message, frame, play.frame_bytes) != 0;
    /* A real host plays the frame here, and feeds each block that it records, channel by channel. */
    failed = failed || ko_soundcommu_decode(modem, frame, (int)play.frame_bytes, 0) != 0;
    free(frame);
    ko_soundcommu_release(modem);
    return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
