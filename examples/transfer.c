/* A text of any length over sound that loses every fourth frame: transfer FILE, or transfer alone for a text of its
   own. Prints how much of the sound was needed, and writes what was heard to standard output. */
#include <kosc/kosc.h>
#include <kosc/log.h>
#include <kosc_transfer/transfer.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

enum { MOST_BYTES = 65536 };

static kosc_transfer_receiver* receiver;
static int finished;

static void on_messages(const decode_result_t* results, uint32_t count)
{
    for (uint32_t i = 0; i < count; i++) {
        kosc_transfer_event_t event;
        switch (kosc_transfer_take(receiver, results[i].msg, &event)) {
        case KOSC_TRANSFER_PLAIN:
            fprintf(stderr, "plain: %.*s\n", (int)results[i].len, (const char*)results[i].msg);
            break;
        case KOSC_TRANSFER_FINISHED: /* what is sent is never trusted: a host checks kind, length and names */
            finished = fwrite(event.payload, 1, event.payload_len, stdout) == event.payload_len;
            break;
        default: /* event.held of event.needed messages: a host shows progress */
            break;
        }
    }
}

static void on_log_line(const char* line) { fprintf(stderr, "%s", line); }

/* Sends one round, or less once the payload is whole; 1 when it is. */
static int send_and_hear(const kosc_transfer_sender* sender, soundcommu_handle_t* modem, int16_t* frame, uint32_t bytes)
{
    const uint32_t needed = kosc_transfer_sender_needed(sender);
    uint32_t sent = 0;
    for (; sent < kosc_transfer_round(needed) && !finished; sent++) {
        uint8_t message[KOSC_TRANSFER_MESSAGE_BYTES];
        if (!kosc_transfer_sender_message(sender, sent, message) ||
            ko_soundcommu_encode(modem, message, sizeof message, frame, bytes) != 0) {
            return 0;
        }
        if (sent % 4 == 1) {
            memset(frame, 0, bytes); /* somebody coughs */
        }
        if (ko_soundcommu_decode(modem, frame, (int)bytes, 0) != 0) {
            return 0;
        }
    }
    fprintf(stderr, "%u messages were needed, %u sent\n", needed, sent);
    return finished;
}

int main(int argc, char** argv)
{
    static uint8_t payload[MOST_BYTES] =
        "A message of the modem has 28 bytes. A text as long as this one travels in several, and whoever misses some "
        "of them hears others that serve as well.\n";
    size_t len = strlen((const char*)payload);
    FILE* file = argc > 1 ? fopen(argv[1], "rb") : NULL;
    if (argc > 1 && (file == NULL || (len = fread(payload, 1, MOST_BYTES, file)) == 0)) {
        fprintf(stderr, "cannot read %s\n", argv[1]);
        return 2;
    }
    if (file != NULL) {
        fclose(file);
    }
#ifdef _WIN32
    _setmode(_fileno(stdout), _O_BINARY); /* else each line feed would leave as two bytes */
#endif
    audio_para_t play, record;
    ko_soundcommu_register_log(on_log_line);
    soundcomm_set_log_level(KOSC_LEVEL_WARN); /* not a line a frame */
    if (ko_soundcommu_get_audio_para(&play, &record) != 0) {
        return EXIT_FAILURE;
    }
    receiver = kosc_transfer_receiver_init(NULL); /* the default limits */
    kosc_transfer_sender* sender = kosc_transfer_sender_init(payload, (uint32_t)len, KOSC_TRANSFER_BYTES, 0);
    soundcommu_handle_t* modem = ko_soundcommu_init(on_messages, on_messages);
    int16_t* frame = malloc(play.frame_bytes);
    const int whole = receiver != NULL && sender != NULL && modem != NULL && frame != NULL &&
                      send_and_hear(sender, modem, frame, play.frame_bytes);
    free(frame);
    ko_soundcommu_release(modem);
    kosc_transfer_sender_free(sender);
    kosc_transfer_receiver_free(receiver);
    return whole ? EXIT_SUCCESS : EXIT_FAILURE;
}
