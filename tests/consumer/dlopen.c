/* The calls that the example host makes, from a library that is loaded when the program starts, as plugins do it. */
#include <dlfcn.h>
#include <kosc/kosc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* A pointer to an object becomes a pointer to a function by its bytes; C has no cast for it. */
static void find(const char* name, void* function, size_t size)
{
    void* const library = dlopen("libkosc.so.1", RTLD_NOW | RTLD_LOCAL);
    void* const symbol = library == NULL ? NULL : dlsym(library, name);
    if (symbol == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        exit(EXIT_FAILURE);
    }
    memcpy(function, &symbol, size);
}

#define CALL(result, name, parameters, arguments)                                                                      \
    result name parameters                                                                                             \
    {                                                                                                                  \
        result(*function) parameters;                                                                                  \
        find(#name, &function, sizeof function);                                                                       \
        return function arguments;                                                                                     \
    }

CALL(int, ko_soundcommu_get_audio_para, (audio_para_t * play, audio_para_t* record), (play, record))
CALL(soundcommu_handle_t*, ko_soundcommu_init, (recv_callback_t first, recv_callback_t second), (first, second))
CALL(int, ko_soundcommu_encode,
     (soundcommu_handle_t * handle, const uint8_t* msg, uint32_t len, int16_t* frame, uint32_t bytes),
     (handle, msg, len, frame, bytes))
CALL(int, ko_soundcommu_decode, (soundcommu_handle_t * handle, const int16_t* data, int len, int channel),
     (handle, data, len, channel))

void ko_soundcommu_register_log(log_callback_t callback)
{
    void (*function)(log_callback_t);
    find("ko_soundcommu_register_log", &function, sizeof function);
    function(callback);
}

void ko_soundcommu_release(soundcommu_handle_t* handle)
{
    void (*function)(soundcommu_handle_t*);
    find("ko_soundcommu_release", &function, sizeof function);
    function(handle);
}
