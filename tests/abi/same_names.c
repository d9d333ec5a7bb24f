/* Functions of a host that are called like functions of the library: each must stay with its owner. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

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
void log_msg(uint32_t level, int line, const char* format, ...);
void log_msg(uint32_t level, int line, const char* format, ...)
{
    fprintf(stderr, "the library called its host's log_msg(%u, %d, %s)\n", (unsigned)level, line, format);
    abort();
}
