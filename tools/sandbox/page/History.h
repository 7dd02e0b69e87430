#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>

namespace kiv::sandbox {

// Keeps the lines of JSON that viewers are sent. They are numbered from 0. Beyond a limit of bytes, the oldest lines
// are removed. A state, such as the state of the home, has a name and one line, and a new line replaces the old one.
class History {
public:
    static constexpr std::size_t kMostBytes = 64UL << 20U;

    struct State {
        std::uint64_t version;
        std::string line;
    };

    void OnNews(std::function<void()> tell) { tell_ = std::move(tell); }

    void Add(std::string line)
    {
        bytes_ += line.size();
        lines_.push_back(std::move(line));
        while (bytes_ > kMostBytes) {
            bytes_ -= lines_.front().size();
            lines_.pop_front();
            ++first_;
        }
        tell_();
    }

    void SetState(const std::string& name, std::string line)
    {
        states_[name] = {++version_, std::move(line)};
        tell_();
    }

    std::uint64_t First() const { return first_; }
    std::uint64_t End() const { return first_ + lines_.size(); }
    const std::string& At(std::uint64_t number) const { return lines_[number - first_]; }

    std::uint64_t Version() const { return version_; }
    const std::map<std::string, State>& States() const { return states_; }

private:
    std::function<void()> tell_ = [] {};
    std::deque<std::string> lines_;
    std::size_t bytes_ = 0;
    std::uint64_t first_ = 0;
    std::map<std::string, State> states_;
    std::uint64_t version_ = 0;
};

} // namespace kiv::sandbox
