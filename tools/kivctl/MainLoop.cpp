#include "tools/kivctl/MainLoop.h"

#include <glib.h>

namespace kiv::ctl {

bool WaitUntil(const std::function<bool()>& isSo, std::chrono::milliseconds limit)
{
    const auto onTimeout = [](gpointer late) -> gboolean {
        *static_cast<bool*>(late) = true;
        return G_SOURCE_CONTINUE;
    };
    bool tooLate = false;
    const guint timer = g_timeout_add(static_cast<guint>(limit.count()), onTimeout, &tooLate);
    while (!isSo() && !tooLate) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(timer);
    return isSo();
}

} // namespace kiv::ctl
