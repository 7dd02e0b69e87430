#include <KivServiceInterface.h>

#include <glib-unix.h>

#include <csignal>
#include <cstdio>
#include <cstring>

namespace {

constexpr unsigned char kLeft[NETSPK_MAC_LEN] = {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01};

// The volume event of the simulated server: see Events.cpp.
constexpr int kVolumeEvent = 0x02020040;
constexpr int kVolumeLength = 14;
constexpr int kVolumeOffset = 10;

// Runs on the library's monitor thread.
void OnEvent(int id, void* data, int length)
{
    if (id != kVolumeEvent || length < kVolumeLength || std::memcmp(data, kLeft, sizeof kLeft) != 0) {
        return;
    }
    int32_t volume = 0;
    std::memcpy(&volume, static_cast<const char*>(data) + kVolumeOffset, sizeof volume);
    std::printf("volume %d\n", volume);
}

constexpr guint kPauseSeconds = 2;

// Only the thread of the main loop uses this variable.
bool g_serverIsThere = false;

// Makes calls on a worker thread, because calls block. GLib then calls onDone in the main loop.
void CallOnWorker(GTaskThreadFunc calls, GAsyncReadyCallback onDone)
{
    GTask* task = g_task_new(nullptr, nullptr, onDone, nullptr);
    g_task_run_in_thread(task, calls);
    g_object_unref(task);
}

void Subscribe(GTask* task, gpointer /*source*/, gpointer /*data*/, GCancellable* /*cancellable*/)
{
    g_task_return_boolean(task, SubscribeNamServiceCallback("example", OnEvent) == 1);
}

// The server reports the volume by an event.
void AskForVolume(GTask* task, gpointer /*source*/, gpointer /*data*/, GCancellable* /*cancellable*/)
{
    GetNetSpkVolume(kLeft, 0);
    g_task_return_boolean(task, TRUE);
}

gboolean OnPauseOver(gpointer /*data*/);

void OnSubscribed(GObject* /*source*/, GAsyncResult* result, gpointer /*data*/)
{
    if (g_task_propagate_boolean(G_TASK(result), nullptr)) {
        std::puts("subscribed");
        // Events that were sent before the subscription are lost, so the host asks for the present state.
        CallOnWorker(AskForVolume, nullptr);
    } else if (g_serverIsThere) {
        g_timeout_add_seconds(kPauseSeconds, OnPauseOver, nullptr);
    }
}

gboolean OnPauseOver(gpointer /*data*/)
{
    if (g_serverIsThere) {
        CallOnWorker(Subscribe, OnSubscribed);
    }
    return G_SOURCE_REMOVE;
}

// The main loop calls this function for the server that runs already, and for each server that is started later. None
// of them knows a subscription of this process.
void OnServer(GDBusConnection* /*bus*/, const char* /*name*/, const char* /*owner*/, gpointer /*data*/)
{
    g_serverIsThere = true;
    CallOnWorker(Subscribe, OnSubscribed);
}

void OnNoServer(GDBusConnection* /*bus*/, const char* /*name*/, gpointer /*data*/)
{
    g_serverIsThere = false;
}

gboolean OnTerminate(gpointer loop)
{
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
}

} // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_unix_signal_add(SIGTERM, OnTerminate, loop);

    const guint watch = g_bus_watch_name(
        G_BUS_TYPE_SYSTEM, "org.lumra.tv.networkspeaker.server", G_BUS_NAME_WATCHER_FLAGS_NONE, OnServer, OnNoServer,
        nullptr, nullptr);
    // The watch starts no server. This call has the bus start one if none runs.
    CallOnWorker(AskForVolume, nullptr);
    g_main_loop_run(loop);
    g_bus_unwatch_name(watch);

    g_main_loop_unref(loop);
    UnsubscribeNamServiceCallback("example");
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
