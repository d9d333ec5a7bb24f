/* A token of 28 bytes that only holders of a key can make, and that is taken once: for opening a door, checking in, or
   confirming. It goes over the modem and back; then what an attacker has of it is refused. Needs libsodium.

   byte  0        0xFE, which begins neither a text nor a message of a transfer
         1 to 4   Unix time in seconds, lowest byte first, until 2106
         5 to 8   counter of the sender, lowest byte first, one more for each token
         9 to 15  what the token says: here a ticket's number
        16 to 27  the first 12 bytes of HMAC-SHA-256 (RFC 2104) of all before

   It resists forging and changing (each try succeeds with 2^-96), playing a recording of it later (time), and playing
   it again at once, or hearing its repetition as a second one (counter). It hides nothing: whoever hears it reads it.
   It does not tell which holder of the key sent it; give each sender a key of its own where that matters. Who listens
   at one door and plays at once at another, in front of which nobody stands, gets in there: let a token name its door.
   Who jams keeps a token from being heard, and may play it himself within the window. Keep the counter where it
   survives a restart, at both ends. */
#include <kosc/kosc.h>
#include <kosc/log.h>
#include <sodium.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum { MARK = 0xFE, MESSAGE = 28, CONTENT = 7, MAC = 12, SIGNED = MESSAGE - MAC, WINDOW_SECONDS = 30 };

static void put_u32(uint8_t* bytes, uint32_t value)
{
    for (int i = 0; i < 4; i++) {
        bytes[i] = (uint8_t)(value >> 8 * i);
    }
}

static uint32_t get_u32(const uint8_t* bytes)
{
    return bytes[0] | (uint32_t)bytes[1] << 8 | (uint32_t)bytes[2] << 16 | (uint32_t)bytes[3] << 24;
}

static void make_token(uint8_t* token, const uint8_t* content, uint32_t now, uint32_t counter, const uint8_t* key)
{
    uint8_t mac[crypto_auth_hmacsha256_BYTES];
    token[0] = MARK;
    put_u32(token + 1, now);
    put_u32(token + 5, counter);
    memcpy(token + 9, content, CONTENT);
    crypto_auth_hmacsha256(mac, token, SIGNED, key);
    memcpy(token + SIGNED, mac, MAC);
}

/* Why a token is refused, or null; `last` is the highest counter taken so far, which a good one raises. */
static const char* refusal(const uint8_t* token, uint32_t now, uint32_t* last, const uint8_t* key)
{
    uint8_t mac[crypto_auth_hmacsha256_BYTES];
    crypto_auth_hmacsha256(mac, token, SIGNED, key);
    if (token[0] != MARK || sodium_memcmp(mac, token + SIGNED, MAC) != 0) {
        return "forged";
    }
    const int64_t age = (int64_t)now - get_u32(token + 1);
    if (age > WINDOW_SECONDS || age < -WINDOW_SECONDS) {
        return "too old";
    }
    if (get_u32(token + 5) <= *last) {
        return "taken before";
    }
    *last = get_u32(token + 5);
    return NULL;
}

static uint8_t heard[MESSAGE];

static void on_messages(const decode_result_t* results, uint32_t count)
{
    if (count > 0) {
        memcpy(heard, results[0].msg, MESSAGE);
    }
}

static void on_log_line(const char* line) { fprintf(stderr, "%s", line); }

static void judge(const char* what, const uint8_t* token, uint32_t now, uint32_t* last, const uint8_t* key)
{
    const char* why = refusal(token, now, last, key);
    printf("%s: %s\n", what, why == NULL ? "taken" : why);
}

int main(void)
{
    uint8_t key[crypto_auth_hmacsha256_KEYBYTES], token[MESSAGE];
    const uint32_t now = (uint32_t)time(NULL);
    uint32_t last = 0; /* the receiver's */
    audio_para_t play, record;
    ko_soundcommu_register_log(on_log_line);
    soundcomm_set_log_level(KOSC_LEVEL_WARN);
    if (sodium_init() < 0 || ko_soundcommu_get_audio_para(&play, &record) != 0) {
        return EXIT_FAILURE;
    }
    crypto_auth_hmacsha256_keygen(key); /* both ends have it, from a way of their own */
    make_token(token, (const uint8_t*)"0042-17", now, 1, key);

    soundcommu_handle_t* modem = ko_soundcommu_init(on_messages, on_messages);
    int16_t* frame = malloc(play.frame_bytes);
    int failed = modem == NULL || frame == NULL ||
                 ko_soundcommu_encode(modem, token, MESSAGE, frame, play.frame_bytes) != 0 ||
                 ko_soundcommu_decode(modem, frame, (int)play.frame_bytes, 0) != 0;
    free(frame);
    ko_soundcommu_release(modem);
    if (failed) {
        return EXIT_FAILURE;
    }

    judge("the token", heard, now + 1, &last, key);
    judge("the same again", heard, now + 2, &last, key);
    make_token(token, (const uint8_t*)"0042-18", now, 2, key);
    judge("a recording of the next one", token, now + WINDOW_SECONDS + 1, &last, key);
    token[15] = '9';
    judge("the next one, changed", token, now, &last, key);
    token[15] = '8';
    judge("the next one", token, now, &last, key);
    return EXIT_SUCCESS;
}
