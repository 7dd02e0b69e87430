#include <KivServiceInterface.h>

#include <cstdio>

namespace {

// GLib calls this function on a worker thread.
void Ask(GTask* task, gpointer /*source*/, gpointer /*data*/, GCancellable* /*cancellable*/)
{
    g_task_return_int(task, GetSurroundChannelNumber());
}

// GLib calls this function in the main context of the thread that made the task, which is the thread of the user
// interface.
void Show(GObject* /*source*/, GAsyncResult* result, gpointer loop)
{
    std::printf("%d surround channels\n", static_cast<int>(g_task_propagate_int(G_TASK(result), nullptr)));
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
}

} // namespace

int main()
{
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    GTask* task = g_task_new(nullptr, nullptr, Show, loop);
    g_task_run_in_thread(task, Ask);
    g_object_unref(task);

    g_main_loop_run(loop);
    g_main_loop_unref(loop);
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
