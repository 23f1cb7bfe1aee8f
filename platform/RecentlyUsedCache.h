#pragma once

/// The values that were asked for last, found by their keys, up to a number and a sum of costs.

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <list>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/ForkSection.h"

/// Any thread, many at once. Keys are compared one by one, the latest first: for few entries.
template <typename Key, typename Value>
class RecentlyUsedCache {
public:
    RecentlyUsedCache(std::size_t mostEntries, std::size_t mostCost) : mostEntries_(mostEntries), mostCost_(mostCost) {}
    RecentlyUsedCache(const RecentlyUsedCache&) = delete;
    RecentlyUsedCache& operator=(const RecentlyUsedCache&) = delete;

    std::optional<Value> Find(const Key& key) {
        const std::lock_guard lock(mutex_);
        const auto found = Place(key);
        if (found == entries_.end()) return std::nullopt;
        entries_.splice(entries_.begin(), entries_, found);
        return found->value;
    }

    /// In place of what the key had; what was used longest ago makes room. A value that costs more than all may is not taken.
    void Add(Key key, Value value, std::size_t cost) {
        if (cost > mostCost_ || mostEntries_ == 0) return;
        std::list<Entry> added, dropped;  // values end without the lock
        added.push_back({std::move(key), std::move(value), cost});
        const std::lock_guard lock(mutex_);
        if (const auto same = Place(added.front().key); same != entries_.end()) Drop(same, &dropped);
        cost_ += cost;
        entries_.splice(entries_.begin(), added);
        while (entries_.size() > mostEntries_ || cost_ > mostCost_) Drop(std::prev(entries_.end()), &dropped);
    }

private:
    struct Entry {
        Key key;
        Value value;
        std::size_t cost;
    };

    auto Place(const Key& key) {
        return std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.key == key; });
    }
    void Drop(typename std::list<Entry>::iterator entry, std::list<Entry>* dropped) {
        cost_ -= entry->cost;
        dropped->splice(dropped->begin(), entries_, entry);
    }

    const std::size_t mostEntries_;
    const std::size_t mostCost_;
    platform::ForkSafeMutex mutex_;
    std::list<Entry> entries_;  // the latest first
    std::size_t cost_ = 0;
};
