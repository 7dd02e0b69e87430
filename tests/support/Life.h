#pragma once

#include "support/Wait.h"

#include <glib-object.h>

#include <memory>

namespace kiv::test {

// Watches whether an object lives, without keeping it alive.
class Life {
public:
    explicit Life(gpointer object) { g_weak_ref_init(&object_, object); }
    ~Life() { g_weak_ref_clear(&object_); }
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;

    // GIO's worker may hold the object for another moment.
    void WaitForEnd()
    {
        WaitUntil("the object to be released", [this] {
            const std::shared_ptr<void> held(
                g_weak_ref_get(&object_), [](gpointer object) { object != nullptr ? g_object_unref(object) : void(); });
            return held == nullptr;
        });
    }

private:
    GWeakRef object_{};
};

} // namespace kiv::test
