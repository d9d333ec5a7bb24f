/* A host with functions of its own that are called like functions of the library: each must stay with its owner. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kosc/kosc.h"

/* The library's versions are declared in headers that this host does not include. */
#define OURS(name)                                                                                                     \
    void name(void);                                                                                                   \
    void name(void)                                                                                                    \
    {                                                                                                                  \
        fprintf(stderr, "the library called its host's %s\n", #name);                                                  \
        abort();                                                                                                       \
    }
OURS(filter)
OURS(vector_init)
OURS(add_crc)
OURS(viterbi_decode)
OURS(kom_vector_alloc)
OURS(soundcomm_init)

/* The library's own comes with kosc/log.h; a program may define the name all the same. */
void log_msg(uint32_t level, int line, const char* format, ...)
{
    fprintf(stderr, "the library called its host's log_msg(%u, %d, %s)\n", (unsigned)level, line, format);
    abort();
}

enum { MESSAGE_BYTES = 28, FRAME_SAMPLES = 11520 };

static const uint8_t message[MESSAGE_BYTES] = "names of one's own";
static int lines, heard;

static void on_line(const char* line) { lines += line[0] != '\0'; }

static void on_message(const decode_result_t* results, uint32_t count)
{
    heard += count == 1 && memcmp(results[0].msg, message, MESSAGE_BYTES) == 0;
}

int main(void)
{
    static int16_t sound[2 * FRAME_SAMPLES];
    ko_soundcommu_register_log(on_line);
    soundcommu_handle_t* modem = ko_soundcommu_init(on_message, on_message);
    const int coded = ko_soundcommu_encode(modem, message, MESSAGE_BYTES, sound, sizeof sound / 2);
    const int listened = ko_soundcommu_decode(modem, sound, sizeof sound, 0);
    ko_soundcommu_release(modem);
    if (coded != 0 || listened != 0 || heard != 1 || lines == 0) {
        fprintf(stderr, "encode %d, decode %d, messages %d, log lines %d\n", coded, listened, heard, lines);
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
