#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace kiv::notify {

// Holds the callbacks that hosts registered for events, in the order of their keys. Threads may change it while the
// event dispatch walks through it. No lock is held while a callback runs. Removing an entry allocates nothing.
//
// An entry that is removed during a walk is not called any more, but stays in the map until the last walk has ended. An
// entry that is added during a walk is called from the next event on, even if it was removed in the same walk.
template <typename Key, typename Receiver>
class Receivers {
public:
    bool IsEmpty() const
    {
        return !Contains([](const auto&...) { return true; });
    }

    // A predicate gets the key and the receiver of an entry.
    template <typename Predicate>
    bool Contains(Predicate&& isMeant) const
    {
        const std::lock_guard lock(mutex_);
        return std::ranges::any_of(entries_, [&](const auto& entry) { return IsAlive(entry, isMeant); });
    }

    // Throws std::bad_alloc if there is no memory, and changes nothing then.
    void AddOrReplace(Key key, const Receiver& receiver)
    {
        const std::lock_guard lock(mutex_);
        Entry& entry = entries_.try_emplace(std::move(key), Entry{receiver, lastWalk_, true}).first->second;
        entry = {receiver, entry.isAlive ? entry.walkBefore : lastWalk_, true};
    }

    // Adds a receiver behind all others, unless the predicate is true of one. Returns whether the receiver was added.
    template <typename Predicate>
    bool AppendUnless(Predicate&& isMeant, const Receiver& receiver)
    {
        const std::lock_guard lock(mutex_);
        if (std::ranges::any_of(entries_, [&](const auto& entry) { return IsAlive(entry, isMeant); })) {
            return false;
        }
        const Key key = entries_.empty() ? Key() : entries_.rbegin()->first + 1;
        entries_.emplace_hint(entries_.end(), key, Entry{receiver, lastWalk_, true});
        return true;
    }

    enum class Removed { kNothing, kOneOfMany, kTheLast };

    // Removes the first receiver of which the predicate is true.
    template <typename Predicate>
    Removed Remove(Predicate&& isMeant)
    {
        const std::lock_guard lock(mutex_);
        const auto found = std::ranges::find_if(entries_, [&](const auto& entry) { return IsAlive(entry, isMeant); });
        if (found == entries_.end()) {
            return Removed::kNothing;
        }
        found->second.isAlive = false;
        const bool isAnyLeft = std::ranges::any_of(entries_, [](const auto& entry) { return entry.second.isAlive; });
        hasDead_ = true;
        EraseDead();
        return isAnyLeft ? Removed::kOneOfMany : Removed::kTheLast;
    }

    // Calls a function with each receiver. One that is replaced during the walk is passed as it is when its turn comes.
    template <typename Function>
    void ForEach(Function&& function)
    {
        Walk walk(*this);
        while (const std::optional<Receiver> receiver = walk.Next()) {
            function(*receiver);
        }
    }

private:
    struct Entry {
        Receiver receiver;
        std::uint64_t walkBefore; // number of the last walk that began before the entry was added
        bool isAlive;
    };
    using Entries = std::map<Key, Entry>;

    // A walk through the entries. Its destructor ends it, also when a callback ends the thread.
    class Walk {
    public:
        explicit Walk(Receivers& receivers) : receivers_(receivers)
        {
            const std::lock_guard lock(receivers_.mutex_);
            ++receivers_.walks_;
            number_ = ++receivers_.lastWalk_;
            next_ = receivers_.entries_.begin();
        }
        ~Walk()
        {
            const std::lock_guard lock(receivers_.mutex_);
            --receivers_.walks_;
            receivers_.EraseDead();
        }
        Walk(const Walk&) = delete;
        Walk& operator=(const Walk&) = delete;

        std::optional<Receiver> Next()
        {
            const std::lock_guard lock(receivers_.mutex_);
            while (next_ != receivers_.entries_.end()) {
                const Entry& entry = (next_++)->second;
                if (entry.isAlive && entry.walkBefore < number_) {
                    return entry.receiver;
                }
            }
            return std::nullopt;
        }

    private:
        Receivers& receivers_;
        std::uint64_t number_;
        typename Entries::iterator next_;
    };

    template <typename Predicate>
    static bool IsAlive(const typename Entries::value_type& entry, Predicate& isMeant)
    {
        return entry.second.isAlive && isMeant(entry.first, entry.second.receiver);
    }

    void EraseDead()
    {
        if (hasDead_ && walks_ == 0) {
            hasDead_ = false;
            std::erase_if(entries_, [](const auto& entry) { return !entry.second.isAlive; });
        }
    }

    mutable std::mutex mutex_;
    Entries entries_;
    std::uint64_t lastWalk_ = 0;
    int walks_ = 0;
    bool hasDead_ = false;
};

} // namespace kiv::notify
