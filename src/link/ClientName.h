#pragma once

#include "link/Owners.h"

namespace kiv::link {

// Requests and releases one bus name. Sends the same messages as GIO's name owner, and waits for neither answer. Used
// on the monitor thread, whose context receives the answers.
class ClientName {
public:
    using Handler = void (*)(GDBusConnection*, const gchar* name, gpointer data);

    ClientName(Handler onAcquired, Handler onLost, gpointer data)
        : onAcquired_(onAcquired), onLost_(onLost), data_(data)
    {
    }
    ~ClientName() { Release(); }
    ClientName(const ClientName&) = delete;
    ClientName& operator=(const ClientName&) = delete;

    // The caller keeps the connection until the name is released.
    void Request(GDBusConnection* connection, const char* name);
    // Does nothing if no name was requested.
    void Release();

    // Returns whether GIO still has to complete a request, be it for a name that is released already. GIO completes it
    // in the context of the monitor thread.
    static bool IsAnswerPending();

private:
    struct Pending;
    enum class Told { kNothing, kAcquired, kLost };

    static void OnAnswer(GObject* connection, GAsyncResult* result, gpointer pending);
    static void OnSignal(
        GDBusConnection* connection, const gchar* sender, const gchar* path, const gchar* interface,
        const gchar* signal, GVariant* parameters, gpointer self);
    guint Listen(const char* signal);
    void Tell(Told told);

    const Handler onAcquired_;
    const Handler onLost_;
    void* const data_;

    GDBusConnection* connection_ = nullptr; // null while no name is requested
    TextOwner name_;
    CancellableOwner cancellable_;
    Pending* pending_ = nullptr;
    guint lostSignal_ = 0;
    guint acquiredSignal_ = 0;
    // The bus holds the name for this connection, or will, as far as is known.
    bool isToBeReleased_ = false;
    Told told_ = Told::kNothing;
};

} // namespace kiv::link
