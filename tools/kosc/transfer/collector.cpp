#include "transfer/collector.h"

#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "audio/audio_file.h"
#include "picture/progress_bar.h"
#include "text.h"
#include "transfer/file_name.h"

using kosc_inspect::counted;

namespace {

constexpr size_t MOST_TOLD = 64; // transfers whose progress is known; the library holds no more either

} // namespace

collector::collector(const receive_options& options, const std::optional<secret_key>& key, speaker say)
    : options_(options), say_(std::move(say))
{
    if (key) {
        opener_.emplace(*key, options.window);
    }
    if (!options.save_folder.empty()) {
        saver_.emplace(options.save_folder, options.overwrite);
    }
    kosc_transfer_limits_t limits = kosc_transfer_default_limits();
    limits.payload_bytes = options.longest;
    receiver_.reset(kosc_transfer_receiver_init(&limits));
    if (!receiver_) {
        throw std::runtime_error("not enough memory to receive transfers");
    }
}

collector::verdict collector::take(const received_message& message, delivery& delivered)
{
    kosc_transfer_event_t event{};
    const kosc_transfer_result_t result =
        options_.single ? KOSC_TRANSFER_PLAIN : kosc_transfer_take(receiver_.get(), message.bytes.data(), &event);
    switch (result) {
    case KOSC_TRANSFER_PLAIN:
        left_out_ += opener_ ? 1 : 0;
        return opener_ ? verdict::TAKEN : verdict::OTHER;
    case KOSC_TRANSFER_PROGRESS:
        note(message, event);
        return verdict::TAKEN;
    case KOSC_TRANSFER_FINISHED:
        unfinished_.erase({event.id, event.needed});
        return deliver(event, delivered);
    case KOSC_TRANSFER_MISMATCH:
        unfinished_.erase({event.id, event.needed});
        return refuse(event, "its check fails, and it is collected anew");
    case KOSC_TRANSFER_REFUSED:
        if (refused_.size() < MOST_TOLD && refused_.emplace(key_type{event.id, event.needed}, true).second) {
            refuse(event, "it is longer than --max-size allows");
        }
        return verdict::TAKEN;
    case KOSC_TRANSFER_NO_MEMORY:
        throw std::runtime_error("not enough memory to receive a transfer");
    default:
        return verdict::TAKEN;
    }
}

void collector::note(const received_message& message, const kosc_transfer_event_t& event)
{
    const auto [place, is_new] = unfinished_.try_emplace(
        {event.id, event.needed}, unfinished{event.id, event.needed, 0, message.sample, 0, message});
    place->second.held = event.held;
    place->second.last_sample = message.sample;
    if (is_new && unfinished_.size() > MOST_TOLD) {
        unfinished_.erase(std::min_element(unfinished_.begin(), unfinished_.end(), [](const auto& a, const auto& b) {
            return a.second.last_sample < b.second.last_sample;
        }));
    }
}

collector::verdict collector::refuse(const kosc_transfer_event_t& event, const std::string& why) const
{
    say_("a transfer of " + counted(event.needed, "message") + " is refused: " + why);
    return verdict::TAKEN;
}

collector::verdict collector::deliver(const kosc_transfer_event_t& event, delivery& delivered)
{
    delivered = {};
    delivered.id = event.id;
    delivered.messages = event.needed;
    delivered.sealed = event.kind >= KOSC_TRANSFER_SEALED;
    delivered.content = {event.kind, {event.payload, event.payload + event.payload_len}};
    if (delivered.sealed != opener_.has_value()) {
        return refuse(event, delivered.sealed ? "it is sealed, and there is no --key or pass phrase"
                                              : "it is not sealed, so anybody may have sent it");
    }
    if (opener_) {
        std::string reason;
        auto opened = opener_->open(delivered.content, static_cast<uint64_t>(std::time(nullptr)), reason);
        if (!opened) {
            return refuse(event, reason);
        }
        delivered.content = std::move(*opened);
    }
    delivered.size = delivered.content.bytes.size();
    save(delivered);
    return verdict::DELIVERED;
}

// Texts are shown; all else is for a folder.
void collector::save(delivery& delivered)
{
    const payload& content = delivered.content;
    named_file file;
    if (content.kind == KOSC_TRANSFER_FILE && take_apart(content.bytes, file)) {
        delivered.name = file.name;
        delivered.size = file.contents.size();
    } else if (content.kind == KOSC_TRANSFER_TEXT && is_utf8({content.bytes.begin(), content.bytes.end()})) {
        return;
    } else {
        file.contents.assign(content.bytes.begin(), content.bytes.end());
    }
    if (!saver_) {
        return;
    }
    const std::string fallback = kosc_inspect::text("transfer-%04x.bin", delivered.id);
    try {
        delivered.saved = saver_->save(safe_name(file.name, fallback), file.contents);
    } catch (const std::runtime_error& error) {
        say_(error.what());
        failed_ = true;
    }
}

std::vector<unfinished> collector::rest() const
{
    std::vector<unfinished> found;
    std::transform(unfinished_.begin(), unfinished_.end(), std::back_inserter(found),
                   [](const auto& each) { return each.second; });
    std::sort(found.begin(), found.end(),
              [](const unfinished& a, const unfinished& b) { return a.first_sample < b.first_sample; });
    return found;
}

void collector::say_what_is_missing() const
{
    for (const unfinished& each : rest()) {
        say_("a transfer is not whole: " + std::to_string(each.held) + " of " + counted(each.needed, "message"));
    }
    if (left_out_ != 0) {
        say_("left out, because not sealed: " + counted(left_out_, "plain message"));
    }
}

std::string collector::progress(int64_t sample, size_t columns) const
{
    constexpr int64_t RECENT = 3 * kosc::SAMPLE_RATE;
    const auto last = std::max_element(unfinished_.begin(), unfinished_.end(), [](const auto& a, const auto& b) {
        return a.second.last_sample < b.second.last_sample;
    });
    if (last == unfinished_.end() || sample - last->second.last_sample > RECENT) {
        return "";
    }
    const unfinished& now = last->second;
    const double seconds = static_cast<double>(now.last_sample - now.first_sample) / kosc::SAMPLE_RATE;
    return transfer_line(now.held, now.needed, seconds > 0.0 ? (now.held - 1) / seconds : 0.0, columns);
}
