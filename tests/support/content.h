// What the library takes and returns, as values that a test can write down and compare.
#ifndef KOSC_TESTS_SUPPORT_CONTENT_H
#define KOSC_TESTS_SUPPORT_CONTENT_H

#include <cstdint>
#include <string>
#include <vector>

#include "kosc/conv_code.h"
#include "support/log_capture.h"
#include "support/owned.h"

using byte_list = std::vector<uint8_t>;
using double_list = std::vector<double>;
using text_list = std::vector<std::string>;

template <typename T> std::vector<T> list(const T* data, size_t count) { return {data, data + count}; }

// "01 1" becomes {0, 1, 1}.
inline byte_list bits(const std::string& text)
{
    byte_list all;
    for (const char c : text) {
        if (c != ' ') {
            all.push_back(c == '1' ? 1 : 0);
        }
    }
    return all;
}

inline kom_vector_uint8 view_of(const byte_list& bytes)
{
    const auto size = static_cast<uint32_t>(bytes.size());
    return kom_vector_uint8_const_view_array(bytes.data(), size, 0, 1, size);
}

inline byte_list content(const bytes_ptr& v) { return v ? list(v->data, v->size) : byte_list{}; }

// Takes over the data.
inline byte_list content(conv_data_t result)
{
    const byte_list all = list(result.data, result.len);
    conv_code_free_data(result.data, result.len);
    return all;
}

// The captured lines of a level ("" for all) as "LEVEL text".
inline text_list logged(const std::string& level = "")
{
    text_list all;
    for (const auto& line : log_capture::lines()) {
        if (line.rfind("[" + level, 0) == 0) {
            const size_t text = line.find("][") + 2;
            all.push_back(line.substr(1, text - 3) + " " + line.substr(text, line.rfind("][") - text));
        }
    }
    return all;
}

#endif
