// The owning guards of kosc/kosc.hpp, so that a failing assertion leaks nothing.
#ifndef KOSC_TESTS_SUPPORT_OWNED_H
#define KOSC_TESTS_SUPPORT_OWNED_H

#include "kosc/kosc.hpp"

template <typename T, auto Release> using owned = kosc::owner<T, Release>;
using kosc::bytes_ptr, kosc::code_ptr, kosc::complex_ptr, kosc::container_ptr, kosc::context_ptr, kosc::doubles_ptr,
    kosc::drift_search_ptr, kosc::filter_ptr, kosc::handle_ptr, kosc::pattern_ptr, kosc::punch_ptr, kosc::queue_ptr,
    kosc::smoother_ptr, kosc::soft_viterbi_ptr;

#endif
