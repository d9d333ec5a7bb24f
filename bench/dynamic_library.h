// A shared library that is loaded while the program runs, by the system's calls.
#ifndef KOSC_BENCH_DYNAMIC_LIBRARY_H
#define KOSC_BENCH_DYNAMIC_LIBRARY_H

#include <cstdio>
#include <cstdlib>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <dlfcn.h>
#endif

class dynamic_library {
public:
    // It stays loaded. A null path means the shared library that the program is linked with. Failure ends the program.
    explicit dynamic_library(const char* path)
#ifdef _WIN32
        : handle_(path == nullptr ? GetModuleHandleA("libkosc-1.dll") : LoadLibraryA(path))
#else
        : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL))
#endif
    {
        require(handle_ != nullptr, path == nullptr ? "the program" : path);
    }

    void* find(const char* name) const
    {
#ifdef _WIN32
        void* const address = reinterpret_cast<void*>(GetProcAddress(handle_, name));
#else
        void* const address = dlsym(handle_, name);
#endif
        require(address != nullptr, name);
        return address;
    }

private:
    static void require(bool found, const char* what)
    {
        if (!found) {
            std::fprintf(stderr, "cannot load %s\n", what);
            std::abort();
        }
    }

#ifdef _WIN32
    HMODULE handle_;
#else
    void* handle_;
#endif
};

#endif
