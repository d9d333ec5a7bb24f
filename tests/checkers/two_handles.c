/*
 * Threads as kosc/kosc.h allows them: first each with a handle of its own, then both on one handle, each listening to a
 * channel. Plain C without a test framework, so that checkers which must see every instruction do: it is built for
 * MemorySanitizer and ThreadSanitizer, and valgrind runs it.
 */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kosc/kosc.h"

enum { THREADS = 2, ROUNDS = 3, MESSAGE_LEN = 28, SAMPLES = 11520, NOISE = 22000 };

typedef struct {
    soundcommu_handle_t* modem;
    int channel;
    uint8_t message[MESSAGE_LEN];
    int heard, failed;
} host_t;

static host_t hosts[THREADS];
static pthread_mutex_t line_lock = PTHREAD_MUTEX_INITIALIZER;
static unsigned lines, lost;

/* Runs on whichever thread has something to log. */
static void on_line(const char* line)
{
    pthread_mutex_lock(&line_lock);
    ++lines;
    lost += strstr(line, "CRC unmatch") != NULL;
    pthread_mutex_unlock(&line_lock);
}

static void listen(host_t* host, const decode_result_t* results, uint32_t count)
{
    for (uint32_t i = 0; i < count; i++) {
        host->heard += results[i].len == MESSAGE_LEN && memcmp(results[i].msg, host->message, MESSAGE_LEN) == 0;
    }
}

static void listen_first(const decode_result_t* results, uint32_t count) { listen(&hosts[0], results, count); }
static void listen_second(const decode_result_t* results, uint32_t count) { listen(&hosts[1], results, count); }

/* One frame clean, the others in noise where the second look works, from a congruential generator. */
static void* run(void* argument)
{
    host_t* const host = argument;
    int16_t* const sound = calloc(2 * SAMPLES, sizeof *sound);
    uint32_t noise = 1;
    host->failed = sound == NULL;
    for (int round = 0; round < ROUNDS && !host->failed; round++) {
        host->failed = ko_soundcommu_encode(host->modem, host->message, MESSAGE_LEN, sound, SAMPLES * 2) != 0;
        for (int i = 0; round != 0 && i < SAMPLES; i++) {
            noise = noise * 1664525U + 1013904223U;
            sound[i] = (int16_t)(sound[i] / 4 + (int)(noise >> 16) % NOISE - NOISE / 2);
        }
        host->failed |= ko_soundcommu_decode(host->modem, sound, 4 * SAMPLES, host->channel) != 0;
    }
    free(sound);
    return NULL;
}

static int run_all(void)
{
    pthread_t threads[THREADS];
    int failed = 0;
    for (int i = 0; i < THREADS; i++) {
        failed |= pthread_create(&threads[i], NULL, run, &hosts[i]) != 0;
    }
    for (int i = 0; i < THREADS; i++) {
        failed |= pthread_join(threads[i], NULL) != 0 || hosts[i].failed;
        printf("channel %d: %d of %d messages\n", hosts[i].channel, hosts[i].heard, ROUNDS);
        failed |= hosts[i].heard == 0;
        hosts[i].heard = 0;
    }
    return failed;
}

int main(void)
{
    int failed = 0;
    ko_soundcommu_register_log(on_line);
    log_level = KOSC_LEVEL_DEBUG; /* so that every log call runs */
    for (int i = 0; i < THREADS; i++) {
        hosts[i].modem = ko_soundcommu_init(i == 0 ? listen_first : listen_second, listen_second);
        memset(hosts[i].message, 'a' + i, MESSAGE_LEN);
        failed |= ko_soundcommu_config_second_look(hosts[i].modem, 1) != 0;
    }
    failed |= run_all();
    ko_soundcommu_release(hosts[1].modem);
    hosts[1].modem = hosts[0].modem;
    hosts[1].channel = 1;
    failed |= run_all();
    ko_soundcommu_release(hosts[0].modem);
    printf("%u log lines, %u frames that no look could read\n", lines, lost);
    return failed || lost == 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
