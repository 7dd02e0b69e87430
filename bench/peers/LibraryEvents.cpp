#include "bench/peers/EventPeer.h"
#include "bench/peers/Library.h"
#include <KivServiceInterface.h>

#include <stdexcept>

namespace kiv::bench {

namespace {

class LibraryEvents : public EventPeer {
public:
    explicit LibraryEvents(const std::string& file) : library_(file) {}

    std::string Id() const override { return "tv_1"; }

    void Subscribe(unsigned count, Subscriber subscriber) override
    {
        for (; count_ > count; --count_) {
            unsubscribe_(Name(count_).c_str());
        }
        for (; count_ < count; ++count_) {
            if (subscribe_(Name(count_ + 1).c_str(), subscriber) != 1) {
                throw std::runtime_error("the library cannot subscribe");
            }
        }
    }

private:
    static std::string Name(unsigned number) { return "subscriber " + std::to_string(number); }

    LoadedLibrary library_;
    decltype(&SubscribeNamServiceCallback) subscribe_ =
        library_.Function<decltype(subscribe_)>("SubscribeNamServiceCallback");
    decltype(&UnsubscribeNamServiceCallback) unsubscribe_ =
        library_.Function<decltype(unsubscribe_)>("UnsubscribeNamServiceCallback");
    unsigned count_ = 0;
};

} // namespace

std::unique_ptr<EventPeer> MakeLibraryEvents(const std::string& file)
{
    return std::make_unique<LibraryEvents>(file);
}

} // namespace kiv::bench
