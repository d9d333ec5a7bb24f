#include "commands/message_joiner.h"

#include <algorithm>
#include <cstdlib>

namespace {

bool is_worse(const received_message& a, const received_message& b)
{
    return a.measured && b.measured ? a.snr_db < b.snr_db : a.correlation < b.correlation;
}

bool belongs_to(const std::vector<received_message>& copies, const received_message& message)
{
    const received_message& first = copies.front();
    return first.bytes == message.bytes && first.band == message.band &&
           std::abs(first.sample - message.sample) <= message_joiner::LONGEST_APART &&
           std::none_of(copies.begin(), copies.end(),
                        [&](const received_message& copy) { return copy.channel == message.channel; });
}

} // namespace

size_t message_joiner::add(const received_message& message)
{
    const auto place =
        std::find_if(waiting_.begin(), waiting_.end(), [&](const copies& each) { return belongs_to(each, message); });
    const auto before = static_cast<size_t>(place - waiting_.begin());
    if (place == waiting_.end()) {
        waiting_.push_back({message});
    } else {
        place->push_back(message);
    }
    return before;
}

bool message_joiner::next(int64_t samples, received_message& message)
{
    if (waiting_.empty()) {
        return false;
    }
    const copies& first = waiting_.front();
    // A frame is found as soon as its last sample is there, unless another covers it.
    if (first.size() < channels_ && samples < first.front().sample + wait_) {
        return false;
    }
    message = *std::max_element(first.begin(), first.end(), is_worse);
    waiting_.pop_front();
    return true;
}
