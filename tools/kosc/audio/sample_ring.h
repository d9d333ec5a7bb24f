// A lock-free queue of samples between one thread that writes and one that reads.
// Source: Lamport 1983, "Specifying concurrent program modules".
#ifndef KOSC_TOOL_SAMPLE_RING_H
#define KOSC_TOOL_SAMPLE_RING_H

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

template <typename sample> class sample_ring {
public:
    explicit sample_ring(size_t capacity) : samples_(capacity) {}

    size_t size() const { return static_cast<size_t>(written_.load() - read_.load()); }
    size_t room() const { return samples_.size() - size(); }

    // The writer's: takes all or, without room for them, none. Allocates nothing and never waits.
    bool write(const sample* from, size_t count)
    {
        if (count > room()) {
            return false;
        }
        const uint64_t start = written_.load(std::memory_order_relaxed);
        const size_t place = static_cast<size_t>(start % samples_.size());
        const size_t to_end = std::min(count, samples_.size() - place);
        std::copy_n(from, to_end, samples_.begin() + static_cast<std::ptrdiff_t>(place));
        std::copy_n(from + to_end, count - to_end, samples_.begin());
        written_.store(start + count);
        return true;
    }

    // The reader's: up to `most` samples; returns how many. Allocates nothing and never waits.
    size_t read(sample* to, size_t most)
    {
        const size_t count = std::min(most, size());
        const uint64_t start = read_.load(std::memory_order_relaxed);
        const size_t place = static_cast<size_t>(start % samples_.size());
        const size_t to_end = std::min(count, samples_.size() - place);
        std::copy_n(samples_.begin() + static_cast<std::ptrdiff_t>(place), to_end, to);
        std::copy_n(samples_.begin(), count - to_end, to + to_end);
        read_.store(start + count);
        return count;
    }

private:
    std::vector<sample> samples_;
    static_assert(std::atomic<uint64_t>::is_always_lock_free);
    std::atomic<uint64_t> written_{0}; // samples since the start
    std::atomic<uint64_t> read_{0};
};

#endif
