// Receivers of several channels and bands, and the numbers under which Java knows them.
#ifndef KOSC_JNI_RECEIVERS_H
#define KOSC_JNI_RECEIVERS_H

#include <atomic>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include <kosc/kosc.hpp>

namespace kosc_jni {

constexpr int CHANNELS = 8;
constexpr int MICROPHONES = 2;

/** A message as kosc.Message reads it. */
struct heard {
    int64_t sample; // of its channel; below 0 when a recording lacks it
    double correlation;
    double snr_db; // this and the next three are NaN unless the second look measured
    double drift_ppm;
    double coherence;
    double evm;
    double newest_snr_db; // this and the next of a message that was put together
    double seconds;
    int32_t channel;
    int32_t band; // its place in the settings
    uint32_t failed_crcs;
    int32_t second_look_needed;
    uint32_t frames; // 0 unless it was put together, as the next two
    uint32_t hearings;
    uint32_t microphones;
    uint8_t data[kosc::MESSAGE_BYTES];
};
static_assert(sizeof(heard) == 120, "kosc.Message counts on it");

/** The next number of all tables. */
int64_t next_id();

/** Objects by number; a number never returns. One counter serves all tables. */
template <typename T> class handle_table {
public:
    int64_t add(std::shared_ptr<T> object)
    {
        const int64_t id = next_id();
        const std::lock_guard<std::mutex> lock{mutex_};
        objects_.emplace(id, std::move(object));
        return id;
    }

    /** Null for a number that is none, or was removed. */
    std::shared_ptr<T> find(int64_t id) const
    {
        const std::lock_guard<std::mutex> lock{mutex_};
        const auto found = objects_.find(id);
        return found != objects_.end() ? found->second : nullptr;
    }

    /** The object goes when the last call that uses it has returned. */
    void remove(int64_t id)
    {
        std::shared_ptr<T> last; // released behind the lock
        const std::lock_guard<std::mutex> lock{mutex_};
        const auto found = objects_.find(id);
        if (found != objects_.end()) {
            last.swap(found->second);
            objects_.erase(found);
        }
    }

private:
    mutable std::mutex mutex_;
    std::unordered_map<int64_t, std::shared_ptr<T>> objects_;
};

struct receiver_settings {
    std::vector<uint32_t> first_subcarriers; // one for each band
    bool second_look;
    bool recording;
    uint32_t combining = KOSC_COMBINING_OFF; // together: the first MICROPHONES channels, and others each alone
    bool crowd = false;                      // with the second look
};

/** Channels are prepared when they first hear something. */
class receiver {
public:
    explicit receiver(receiver_settings settings) : settings_{std::move(settings)} {}

    /** To be held while channels `first` to `first + count - 1` hear something: other channels may, at the same time,
     * but those that are combined with one of them. */
    std::vector<std::unique_lock<std::mutex>> lock(int first, int count);

    /** Listens to the samples; false when memory is short. */
    bool push(int channel, const int16_t* samples, uint32_t count);

    /** Listens to the silence behind a recording, on all channels that heard something; false when memory is short. */
    bool finish();

    /** The messages of these channels, in the order of time, then of channels; they stay until forget(). */
    std::vector<heard> messages(int first, int count) const;
    void forget(int first, int count);

private:
    struct listener {
        kosc::context_ptr context;
        uint32_t lead = 0; // samples of silence before the first pushed
    };

    struct channel_state {
        std::mutex mutex;
        std::vector<listener> listeners; // one for each band; none before the channel is used
        std::vector<heard> messages;     // not yet handed over
    };

    // Channels that are one receiver.
    struct ears {
        int first;
        int count;
    };

    ears ears_of(int channel) const;
    bool prepare(ears channels);
    bool make_listeners(ears channels, std::vector<listener>* made) const;
    static bool hear(listener& from, const int16_t* samples, uint32_t count, heard place, std::vector<heard>& messages);

    const receiver_settings settings_;
    channel_state channels_[CHANNELS];
};

} // namespace kosc_jni

#endif
