#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

namespace kiv::notify {

// A container that many threads read and few change. A reader keeps the state that it took for as long as it works
// with it; a change puts a new state in place. Nobody waits for a reader.
template <typename Container>
class Snapshot {
public:
    using State = std::shared_ptr<const Container>;

    // Null when the container is empty.
    State Take() const
    {
        const std::lock_guard lock(mutex_);
        return state_;
    }

    // Visits the elements that are there now, each as it is when its turn comes: find(container, element) gives what
    // has become of an element after a change, null if it was removed, which is then left out.
    template <typename Find, typename Visit>
    void ForEach(Find&& find, Visit&& visit) const
    {
        const State start = Take();
        if (!start) {
            return;
        }
        State latest = start;
        for (const auto& element : *start) {
            if (current_ != latest.get()) {
                latest = Take();
            }
            const auto* now = latest == start ? &element : latest ? find(*latest, element) : nullptr;
            if (now != nullptr) {
                visit(*now);
            }
        }
    }

    // Applies a function to a copy, which becomes the state if the function returns true. Returns what it returned.
    template <typename Function>
    bool Change(Function&& function)
    {
        const std::lock_guard oneAtATime(changing_);
        const State before = Take();
        auto after = before ? std::make_shared<Container>(*before) : std::make_shared<Container>();
        if (!std::forward<Function>(function)(*after)) {
            return false;
        }
        Replace(after->empty() ? nullptr : std::move(after));
        return true;
    }

    void Clear() { Replace(nullptr); }

private:
    void Replace(State state)
    {
        const std::lock_guard lock(mutex_);
        state_.swap(state);
        current_ = state_.get();
    }

    mutable std::mutex mutex_;
    std::mutex changing_;
    State state_;
    std::atomic<const Container*> current_ = nullptr;
};

} // namespace kiv::notify
