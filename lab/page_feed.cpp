#include "lab/page_feed.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "lab/encoding.h"
#include "platform/json.h"

namespace csi_lab {
namespace {

constexpr std::size_t max_batch = 2000;

} // namespace

page_feed::page_feed(std::size_t limit)
    : limit_(limit) {}

void page_feed::add(const entry& what) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        push(format_annotated(what, annotator_.next(what)));
        if (what.from == "daemon") {
            heard_ = std::chrono::system_clock::now();
        }
    }
    changed_.notify_all();
}

void page_feed::note(const std::string& kind, const std::string& text) {
    const double time = now();
    json::document item(rapidjson::kObjectType);
    json::set(item, "note", kind, item.GetAllocator());
    json::set(item, "time", json::value(std::round(time * 1000) / 1000), item.GetAllocator());
    json::set(item, "text", is_utf8(text) ? text : "(not UTF-8)", item.GetAllocator());
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        push(json::write(item));
    }
    changed_.notify_all();
}

void page_feed::push(std::string item) {
    items_.push_back(std::move(item));
    if (items_.size() > limit_) {
        items_.pop_front();
        ++dropped_;
    }
}

page_feed::batch page_feed::read(std::uint64_t from, std::chrono::milliseconds time) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, time, [&] { return closed_ || dropped_ + items_.size() > from; });
    const auto first = static_cast<std::size_t>(
        std::min<std::uint64_t>(std::max(from, dropped_) - dropped_, items_.size()));
    const std::size_t end = std::min(items_.size(), first + max_batch);
    batch result{dropped_ + end, ""};
    for (std::size_t index = first; index < end; ++index) {
        result.items += (result.items.empty() ? "" : ",\n") + items_[index];
    }
    result.items = "[" + result.items + "]";
    return result;
}

double page_feed::now() const {
    return std::chrono::duration<double>(std::chrono::system_clock::now() - start_).count();
}

std::optional<double> page_feed::silent_for() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!heard_) {
        return std::nullopt;
    }
    return std::chrono::duration<double>(std::chrono::system_clock::now() - *heard_).count();
}

void page_feed::close() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
    }
    changed_.notify_all();
}

} // namespace csi_lab
