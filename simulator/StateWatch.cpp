#include "simulator/StateWatch.h"

#include <utility>

namespace kiv::simulator {

struct StateWatch::Source {
    GSource base;
    StateWatch* watch;

    static gboolean Prepare(GSource* source, gint* timeout)
    {
        *timeout = -1;
        reinterpret_cast<Source*>(source)->watch->Look();
        return FALSE;
    }
};

StateWatch::StateWatch(std::function<std::string()> state) : state_(std::move(state))
{
    static GSourceFuncs functions = {&Source::Prepare, nullptr, nullptr, nullptr, nullptr, nullptr};
    source_ = g_source_new(&functions, sizeof(Source));
    reinterpret_cast<Source*>(source_)->watch = this;
    g_source_attach(source_, nullptr);
}

StateWatch::~StateWatch()
{
    g_source_destroy(source_);
    g_source_unref(source_);
}

void StateWatch::Look()
{
    if (waiters_.empty()) {
        return;
    }
    const std::string state = state_();
    std::erase_if(waiters_, [&state](const Waiter& waiter) {
        const bool isDue = waiter.known != state;
        if (isDue) {
            waiter.answer(state);
        }
        return isDue;
    });
}

} // namespace kiv::simulator
