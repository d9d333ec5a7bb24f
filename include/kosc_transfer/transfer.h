/**
 * @file
 * Files and long text over 28-byte messages: a payload of 1 byte to 1 MiB becomes an endless sequence of messages, of
 * which any set of slightly more than the payload's size gives the payload back.
 *
 * Up to 327,668 payload bytes any `needed` different messages of a transfer suffice, however many were lost, and in any
 * order; above, about 1 % more. docs/transfer.md has the form of a message, byte by byte, and the figures.
 * This library knows nothing of sound: the host hands the messages to a modem, and every message that it hears to
 * kosc_transfer_take(). There is no thread, file, lock or log. Calls with the same receiver must not run at the same
 * time; a sender is only read.
 *
 * The check that ends a transfer detects errors. It is no signature: whoever can send messages can send a payload.
 * Sources: Reed and Solomon 1960, "Polynomial codes over certain finite fields"; Bloemer et al. 1995, "An XOR-based
 * erasure-resilient coding scheme" (Cauchy matrices); Aumasson and Bernstein 2012, "SipHash".
 */
#ifndef KOSC_TRANSFER_TRANSFER_H
#define KOSC_TRANSFER_TRANSFER_H

#include <stdbool.h>
#include <stdint.h>

/** @def KOSC_TRANSFER_API
 * Marks what the library exports. */
#if defined(__GNUC__) && !defined(_WIN32)
#define KOSC_TRANSFER_API __attribute__((visibility("default")))
#else
#define KOSC_TRANSFER_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Sizes in bytes: of a message, of the content that it carries, of the longest payload. */
enum { KOSC_TRANSFER_MESSAGE_BYTES = 28, KOSC_TRANSFER_CONTENT_BYTES = 20, KOSC_TRANSFER_MAX_BYTES = 1048576 };

/** What a payload is; travels with it, and is covered by its check. The library attaches no meaning to it. */
enum {
    KOSC_TRANSFER_BYTES = 0,
    KOSC_TRANSFER_TEXT = 1,    /**< UTF-8 */
    KOSC_TRANSFER_FILE = 2,    /**< one byte n, a name of n bytes in UTF-8, the file's bytes */
    KOSC_TRANSFER_SEALED = 128 /**< added to one of the above: encrypted by the host */
};

/** The first bytes of a message, read. */
typedef struct kosc_transfer_header_t {
    uint32_t id;     /**< 16 bits that tell transfers of the same size apart */
    uint32_t needed; /**< messages that the transfer needs */
    uint32_t number; /**< which of the transfer's messages this is: its index, which wraps at `period` */
    uint32_t period; /**< different messages that the transfer has: 65536, 131072 or 262144 */
} kosc_transfer_header_t;

/**
 * Reads and checks the first bytes of a message, and so tells messages of a transfer from plain ones.
 *
 * @param message  KOSC_TRANSFER_MESSAGE_BYTES bytes
 * @param header   receives them; may be null; written only when the result is true
 * @return true for a message of a transfer. A random plain message passes with 2^-21.4 (3.7e-7); one that begins with
 *         UTF-8 text never does. False when `message` is null.
 */
KOSC_TRANSFER_API bool kosc_transfer_read_header(const uint8_t* message, kosc_transfer_header_t* header);

/**
 * Messages of one round: `needed` and half as many again and four, at most UINT32_MAX. A receiver that loses one
 * message in five finishes within a round; one that loses every second within two, if the second goes on where the
 * first ended.
 */
KOSC_TRANSFER_API uint32_t kosc_transfer_round(uint32_t needed);

/** A payload that is being sent. */
typedef struct kosc_transfer_sender kosc_transfer_sender;

/**
 * Prepares a payload for sending.
 *
 * @param payload  its bytes, which are copied
 * @param len      their number, 1 to KOSC_TRANSFER_MAX_BYTES
 * @param kind     KOSC_TRANSFER_..., 0 to 255
 * @param nonce    0, or any number: the same payload with another nonce is another transfer, which a receiver that has
 *                 delivered the first delivers once more. Messages depend on the arguments alone.
 * @return the sender, to be released by kosc_transfer_sender_free(); null when an argument is out of range or memory
 *         is short. It holds the payload once, in pieces of 24 bytes for 20, and 0.25 MiB of tables.
 */
KOSC_TRANSFER_API kosc_transfer_sender* kosc_transfer_sender_init(const uint8_t* payload, uint32_t len, uint32_t kind,
                                                                  uint32_t nonce);

/** Releases a sender; null is allowed. */
KOSC_TRANSFER_API void kosc_transfer_sender_free(kosc_transfer_sender* sender);

/** Messages that a receiver needs of this transfer; 0 when `sender` is null. */
KOSC_TRANSFER_API uint32_t kosc_transfer_sender_needed(const kosc_transfer_sender* sender);

/**
 * Any message of the endless sequence, in any order. The first `needed` carry the payload itself, all others repair
 * what was lost; after `period` messages the sequence begins anew. To stripe a transfer over n bands, let band b send
 * the messages b, b + n, b + 2n and so on.
 *
 * @param sender   sender
 * @param index    which message
 * @param message  receives KOSC_TRANSFER_MESSAGE_BYTES bytes
 * @return false when an argument is null. Repair takes time in proportion to the payload, about 6 ns for 20 bytes;
 *         nothing is allocated.
 */
KOSC_TRANSFER_API bool kosc_transfer_sender_message(const kosc_transfer_sender* sender, uint32_t index,
                                                    uint8_t* message);

/** What a receiver may use. */
typedef struct kosc_transfer_limits_t {
    uint32_t payload_bytes; /**< longest payload: transfers above are refused; 1048576 */
    uint32_t memory_bytes;  /**< for what unfinished transfers hold, all together; 4194304 */
    uint32_t transfers;     /**< unfinished transfers that are held at a time, at least 1; 64 */
    uint32_t finished;      /**< delivered transfers that are remembered, so that each is delivered once; 256 */
} kosc_transfer_limits_t;

/** The default limits, which stand behind each field above. */
KOSC_TRANSFER_API kosc_transfer_limits_t kosc_transfer_default_limits(void);

/** What a message was to a receiver. */
typedef enum kosc_transfer_result_t {
    KOSC_TRANSFER_NO_MEMORY = -2, /**< memory is short; what is held stays, and a later message tries again */
    KOSC_TRANSFER_INVALID = -1,   /**< an argument is null */
    KOSC_TRANSFER_PLAIN = 0,      /**< no message of a transfer */
    KOSC_TRANSFER_PROGRESS = 1,   /**< one message more is held */
    KOSC_TRANSFER_REPEATED = 2,   /**< nothing new: held already, or the transfer has been delivered */
    KOSC_TRANSFER_FINISHED = 3,   /**< the payload is whole */
    KOSC_TRANSFER_MISMATCH = 4,   /**< the payload fails its check; the transfer begins anew with later messages */
    KOSC_TRANSFER_REFUSED = 5     /**< the transfer needs more than the limits allow */
} kosc_transfer_result_t;

/** What kosc_transfer_take() says besides. */
typedef struct kosc_transfer_event_t {
    uint32_t id;            /**< of the message's transfer */
    uint32_t held;          /**< messages held that bring it further; `needed` when it is finished */
    uint32_t needed;        /**< messages that it needs */
    uint32_t kind;          /**< of the payload, with KOSC_TRANSFER_FINISHED */
    const uint8_t* payload; /**< with KOSC_TRANSFER_FINISHED, else null; the receiver's, until its next call */
    uint32_t payload_len;   /**< bytes of it */
} kosc_transfer_event_t;

/** Collects the messages of any number of transfers. */
typedef struct kosc_transfer_receiver kosc_transfer_receiver;

/**
 * Makes a receiver. It takes 0.25 MiB of tables, up to `memory_bytes` for messages, and while it decodes a payload up
 * to 1.5 MiB more: 6 MiB with the default limits, whatever it is sent.
 *
 * @param limits  may be null, for the default
 * @return the receiver, to be released by kosc_transfer_receiver_free(); null when memory is short or `transfers` is 0
 */
KOSC_TRANSFER_API kosc_transfer_receiver* kosc_transfer_receiver_init(const kosc_transfer_limits_t* limits);

/** Releases a receiver with all that it holds; null is allowed. */
KOSC_TRANSFER_API void kosc_transfer_receiver_free(kosc_transfer_receiver* receiver);

/**
 * Takes one message, whoever sent it, from whichever band.
 *
 * When the limits are reached, a new message displaces the unfinished transfer that has been silent for the longest
 * in proportion to what it holds: what was begun and left goes first. Each payload is delivered once while its
 * transfer is among the last `finished` delivered ones; the payload with another nonce counts as another.
 *
 * @param receiver  receiver
 * @param message   KOSC_TRANSFER_MESSAGE_BYTES bytes
 * @param event     receives what is known of the message's transfer, all zero for KOSC_TRANSFER_PLAIN; may be null
 * @return what the message was. A wrong payload passes the check with 2^-64, unless somebody means it to.
 */
KOSC_TRANSFER_API kosc_transfer_result_t kosc_transfer_take(kosc_transfer_receiver* receiver, const uint8_t* message,
                                                            kosc_transfer_event_t* event);

#ifdef __cplusplus
}
#endif

#endif
