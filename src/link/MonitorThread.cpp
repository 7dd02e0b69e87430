#include "link/MonitorThread.h"

#include "link/ClientEndpoint.h"
#include "link/LibraryPin.h"
#include "link/Lifetime.h"
#include "link/Owners.h"
#include "link/SystemBus.h"
#include "link/ThreadKey.h"

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <utility>

namespace kiv::link {

namespace {

class MonitorRun;

// Limits the turns of the context when the thread ends. GIO's sources need fewer.
constexpr int kMostTurns = 1000;

// The state of the one monitor thread, guarded by g_monitorMutex. README.md has its state machine. m_pMainLoop and
// m_MonitorThread belong to the state, but are public members of the client that the thread serves.
struct Monitor {
    bool s_bMonitorStarted = false;
    bool isEnding = false; // never reset
    bool isJoining = false;
    // The connection and the id that the endpoint is to have. The thread moves the reference into the endpoint, which
    // keeps it until the next place. So no other connection can have the address in wantedConnection, which is only
    // compared.
    ConnectionOwner wanted;
    const GDBusConnection* wantedConnection = nullptr;
    TextOwner wantedId;
    // The run and the context are set while the thread's context lives.
    MonitorRun* run = nullptr;
    GMainContext* context = nullptr;
    void* pin = nullptr;
};

std::mutex g_monitorMutex;
constinit NeverDestroyed<Monitor> g_monitor;
NeverDestroyed<std::condition_variable> g_joined;

void Post(GMainContext* context, GSourceFunc task)
{
    const SourceOwner source(g_idle_source_new());
    g_source_set_priority(source.get(), G_PRIORITY_DEFAULT);
    g_source_set_callback(source.get(), task, nullptr, nullptr);
    g_source_attach(source.get(), context);
}

// The references that an end takes out of the shared state, to release them without the lock.
struct Ending {
    LoopOwner loop;
    ConnectionOwner wanted;
};

// Must be called under g_monitorMutex. After it, ServeEvents() accepts no place, and Look() ends the loop.
Ending EndUnderLock(CNSGdbus& client)
{
    g_monitor->isEnding = true;
    return {LoopOwner(std::exchange(client.m_pMainLoop, nullptr)), std::move(g_monitor->wanted)};
}

void EndFor(CNSGdbus& client)
{
    Ending ending;
    const std::lock_guard lock(g_monitorMutex);
    ending = EndUnderLock(client);
}

// The monitor thread creates this object first. The destructor does the work of the thread's end.
class MonitorRun {
public:
    MonitorRun(CNSGdbus& client, ContextOwner context, const Here& here)
        : client_(client), context_(std::move(context)), endpoint_(client, here),
          loop_(g_main_loop_new(context_.get(), FALSE))
    {
        g_main_context_push_thread_default(context_.get());
        const std::lock_guard lock(g_monitorMutex);
        g_monitor->run = this;
        g_monitor->context = context_.get();
        if (!g_monitor->isEnding) {
            client.m_pMainLoop = g_main_loop_ref(loop_.get());
        }
    }

    ~MonitorRun()
    {
        Unpublish();
        endpoint_.Close();
        // GIO completes a cancelled request in this context, without an answer of the bus.
        while (ClientName::IsAnswerPending()) {
            g_main_context_iteration(context_.get(), TRUE);
        }
        // GIO's sources that are left in the context refer to the connection, so they run here. They call no handler,
        // because the object is unregistered. The number of turns is limited, because a callback may have attached a
        // source that is always ready.
        for (int turn = 0; turn < kMostTurns && g_main_context_iteration(context_.get(), FALSE) != FALSE; ++turn) {
        }
        // A callback that ended the thread may have left a context of its own pushed.
        if (g_main_context_get_thread_default() == context_.get()) {
            g_main_context_pop_thread_default(context_.get());
        }
    }

    MonitorRun(const MonitorRun&) = delete;
    MonitorRun& operator=(const MonitorRun&) = delete;

    // Posts Look() before it runs the loop, because g_main_loop_quit() has no effect on a loop that does not run yet.
    void Run()
    {
        Post(context_.get(), Look);
        g_main_loop_run(loop_.get());
    }

    // The task that other threads post. Ends the loop, or moves the endpoint to the wanted place.
    static gboolean Look(gpointer /*data*/)
    {
        MonitorRun* run = nullptr;
        bool isEnding = false;
        {
            const std::lock_guard lock(g_monitorMutex);
            run = g_monitor->run;
            isEnding = g_monitor->isEnding;
        }
        if (run != nullptr && (isEnding || !run->Serve())) {
            g_main_loop_quit(run->loop_.get());
        }
        return G_SOURCE_REMOVE;
    }

private:
    // Returns false if there can be no endpoint.
    bool Serve()
    {
        ConnectionOwner connection;
        TextOwner id;
        {
            const std::lock_guard lock(g_monitorMutex);
            connection = std::move(g_monitor->wanted);
            id = CopyOf(g_monitor->wantedId.get());
        }
        return !connection || endpoint_.Serve(std::move(connection), id.get());
    }

    void Unpublish()
    {
        Ending ending;
        const std::lock_guard lock(g_monitorMutex);
        ending = EndUnderLock(client_);
        g_monitor->run = nullptr;
        g_monitor->context = nullptr;
    }

    CNSGdbus& client_;
    const ContextOwner context_;
    ClientEndpoint endpoint_;
    const LoopOwner loop_;
};

// Disables the cancellation of this thread. On 32-bit ARM, the C library does not unwind a thread that is cancelled in
// pthread_join(): isJoining would stay set, and the other threads that join would wait forever.
class NotCancelled {
public:
    NotCancelled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~NotCancelled() { pthread_setcancelstate(before_, nullptr); }
    NotCancelled(const NotCancelled&) = delete;
    NotCancelled& operator=(const NotCancelled&) = delete;

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

// Returns the key under which the monitor thread keeps its MonitorRun. If a callback ends the thread, the C library
// calls the key's destructor after the thread's body, also where it does not unwind the stack: GLib has no unwind
// tables on 32-bit ARM. The C library would take the loader's lock for a thread_local object. A plug-in that ends the
// monitor while it is being unloaded holds that lock, and waits for the thread.
const ThreadKey& RunKey()
{
    static const ThreadKey key([](void* run) { delete static_cast<MonitorRun*>(run); });
    return key;
}

void Start(CNSGdbus& client)
{
    void* pin = PinLibrary();
    Ending ending;
    {
        const std::lock_guard lock(g_monitorMutex);
        pthread_t thread = 0;
        if (pthread_create(&thread, nullptr, CNSGdbus::m_Monitor, &client) == 0) {
            client.m_MonitorThread = thread;
            g_monitor->pin = std::exchange(pin, nullptr);
        } else {
            ending = EndUnderLock(client);
        }
    }
    UnpinLibrary(pin);
}

} // namespace

void ServeEvents(CNSGdbus& client, GDBusConnection* connection, const char* id)
{
    if (IsClosed(connection)) {
        return; // the connection was lost during the call; the endpoint may stand on a later one by now
    }
    ConnectionOwner replaced; // released without the lock
    ContextOwner context;
    bool isFirst = false;
    {
        const std::lock_guard lock(g_monitorMutex);
        const bool isKnown =
            g_monitor->wantedConnection == connection && std::strcmp(g_monitor->wantedId.get(), id) == 0;
        if (isKnown || g_monitor->isEnding) {
            return;
        }
        replaced = std::exchange(g_monitor->wanted, NewReference(connection));
        g_monitor->wantedConnection = connection;
        g_monitor->wantedId = CopyOf(id);
        context = NewReference(g_monitor->context);
        isFirst = !std::exchange(g_monitor->s_bMonitorStarted, true);
    }
    if (context) {
        Post(context.get(), MonitorRun::Look);
    } else if (isFirst) {
        Start(client);
    }
}

void ForgetMonitor()
{
    RunKey().Delete();
    g_monitor.Destroy();
    g_joined.Destroy();
}

} // namespace kiv::link

using namespace kiv::link;

void* CNSGdbus::m_Monitor(void* pInstance)
{
    auto* client = static_cast<CNSGdbus*>(pInstance);
    if (client == nullptr) {
        KIV_LOG_ERROR("pInstance is NULL");
        return nullptr;
    }
    ContextOwner context(g_main_context_new());
    if (!context) {
        KIV_LOG_ERROR("[%s] pContext is NULL", kApiTag);
        EndFor(*client);
        return nullptr;
    }
    auto* const run = new MonitorRun(*client, std::move(context), KIV_HERE);
    RunKey().Keep(run);
    run->Run();
    RunKey().Keep(nullptr);
    delete run;
    return nullptr;
}

int CNSGdbus::m_DestroyMessageMonitor()
{
    std::unique_lock lock(g_monitorMutex);
    if (m_MonitorThread == 0 && m_pMainLoop == nullptr) {
        return 0; // no thread serves this object: none was started, it is joined, or it serves another one
    }
    Ending ending = EndUnderLock(*this);
    const bool isOwnEnd = pthread_equal(m_MonitorThread, pthread_self()) != 0;
    lock.unlock();
    if (ending.loop) {
        g_main_loop_quit(ending.loop.get());
    }
    ending = {};
    if (isOwnEnd) {
        return EDEADLK; // pthread_join() would return this, too
    }

    const NotCancelled untilJoined;
    lock.lock();
    g_joined->wait(lock, [this] { return m_MonitorThread == 0 || !g_monitor->isJoining; });
    if (m_MonitorThread == 0) {
        return 0;
    }
    g_monitor->isJoining = true;
    const pthread_t thread = m_MonitorThread;
    lock.unlock();
    const int result = pthread_join(thread, nullptr);
    lock.lock();
    g_monitor->isJoining = false;
    void* pin = nullptr;
    if (result == 0) {
        m_MonitorThread = 0;
        pin = std::exchange(g_monitor->pin, nullptr);
    }
    lock.unlock();
    g_joined->notify_all();
    UnpinLibrary(pin);
    return result;
}
