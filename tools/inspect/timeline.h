// A picture over time that never grows beyond a screen's width, however long the recording.
#ifndef KOSC_INSPECT_TIMELINE_H
#define KOSC_INSPECT_TIMELINE_H

#include <algorithm>
#include <cstddef>
#include <vector>

namespace kosc_inspect {

class timeline {
public:
    using column = std::vector<float>;

    // Takes the next column; when there are too many, neighbours become one that keeps the greater values.
    void add(const column& next)
    {
        if (merged_ == 0) {
            columns_.push_back(next);
        } else {
            keep_greater(columns_.back(), next);
        }
        merged_ = (merged_ + 1) % share_;
        if (merged_ == 0 && columns_.size() == MOST) {
            for (size_t i = 0; i < MOST / 2; ++i) {
                keep_greater(columns_[2 * i], columns_[2 * i + 1]);
                columns_[i] = columns_[2 * i];
            }
            columns_.resize(MOST / 2);
            share_ *= 2;
        }
    }

    const std::vector<column>& columns() const { return columns_; }
    // Columns as added that one of columns() stands for.
    size_t share() const { return share_; }

private:
    static constexpr size_t MOST = 2048;

    static void keep_greater(column& into, const column& other)
    {
        for (size_t i = 0; i < into.size(); ++i) {
            into[i] = std::max(into[i], other[i]);
        }
    }

    std::vector<column> columns_;
    size_t share_ = 1;
    size_t merged_ = 0;
};

} // namespace kosc_inspect

#endif
