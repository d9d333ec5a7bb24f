// The transfers among the messages that are heard, put together, opened and saved.
#ifndef KOSC_TOOL_COLLECTOR_H
#define KOSC_TOOL_COLLECTOR_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/listener.h"
#include "kosc_transfer/transfer.h"
#include "transfer/file_saver.h"
#include "transfer/payload.h"
#include "transfer/seal.h"

struct receive_options {
    std::string save_folder; // empty: files are only told
    bool overwrite = false;
    uint32_t longest = KOSC_TRANSFER_MAX_BYTES; // payload that is taken
    double window = 0.0;                        // seconds by which the time of a seal may differ; 0: any
    bool single = false;                        // messages of transfers are shown one by one
    key_options key;
};

// What came whole.
struct delivery {
    uint32_t id, messages; // of the transfer
    bool sealed;
    payload content;   // opened
    std::string name;  // of a file, as it was sent
    std::string saved; // its path; empty when it was not saved
    size_t size;       // bytes of the text or of the file
};

// A transfer that is not whole.
struct unfinished {
    uint32_t id, needed, held;
    int64_t first_sample, last_sample; // where its messages were heard
    received_message first;
};

class collector {
public:
    enum class verdict { OTHER, TAKEN, DELIVERED }; // no message of a transfer; one; one that made a transfer whole
    using speaker = std::function<void(const std::string& sentence)>;

    // `say` tells what is refused. Throws when memory is short or the folder is none.
    collector(const receive_options& options, const std::optional<secret_key>& key, speaker say);

    verdict take(const received_message& message, delivery& delivered);
    // What is not whole, in the order of its beginning.
    std::vector<unfinished> rest() const;
    // Tells on what is not whole, and on plain messages that a key left out.
    void say_what_is_missing() const;
    // "[###---] 41 %, 83 bytes/s, 0:25 left" of the transfer that came further within the last seconds before `sample`;
    // empty when there is none.
    std::string progress(int64_t sample, size_t columns) const;
    // Whether plain messages are taken too: not with a key, since they could be anybody's.
    bool takes_plain() const { return !opener_; }
    // Whether something could not be saved.
    bool failed() const { return failed_; }

private:
    using key_type = std::pair<uint32_t, uint32_t>; // identifier and messages needed

    void note(const received_message& message, const kosc_transfer_event_t& event);
    verdict refuse(const kosc_transfer_event_t& event, const std::string& why) const;
    verdict deliver(const kosc_transfer_event_t& event, delivery& delivered);
    void save(delivery& delivered);

    receive_options options_;
    std::optional<seal_opener> opener_;
    std::optional<file_saver> saver_;
    speaker say_;
    kosc::owner<kosc_transfer_receiver, kosc_transfer_receiver_free> receiver_;
    std::map<key_type, unfinished> unfinished_;
    std::map<key_type, bool> refused_; // said so
    uint64_t left_out_ = 0;            // plain messages
    bool failed_ = false;
};

#endif
