#pragma once

#include "link/Owners.h"

namespace kiv::link {

/*
 * Requests and releases one bus name. It sends the same messages as GIO's name owner does, and waits for neither
 * answer. The monitor thread uses it, and receives the answers in its context.
 */
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

    // The connection is the caller's, who keeps it until the name is released.
    void Request(GDBusConnection* connection, const char* name);
    // Does nothing if no name was asked for.
    void Release();

    // Whether GIO still has to complete a request, of this or of a released name. It does so in the thread's context.
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

    GDBusConnection* connection_ = nullptr; // null while no name is asked for
    TextOwner name_;
    CancellableOwner cancellable_;
    Pending* pending_ = nullptr;
    guint lostSignal_ = 0;
    guint acquiredSignal_ = 0;
    // The bus holds the name for us or will, as far as we know.
    bool isToBeReleased_ = false;
    Told told_ = Told::kNothing;
};

} // namespace kiv::link
