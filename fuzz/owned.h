// Owning guards over the library's release functions.
#ifndef KOSC_FUZZ_OWNED_H
#define KOSC_FUZZ_OWNED_H

#include <memory>

template <auto Release> struct releaser {
    template <typename T> void operator()(T* object) const { Release(object); }
};
template <typename T, auto Release> using owned = std::unique_ptr<T, releaser<Release>>;

#endif
