#pragma once

#include "KivServiceInterface.h"
#include "link/ClientName.h"
#include "link/Log.h"
#include "link/Owners.h"

namespace kiv::link {

// The introspection XML of the client object, and its handlers. Every call passes them to GetProxy().
extern const char* const kClientXml;
extern const GDBusInterfaceVTable kClientVTable;

// The client's object and bus name on one connection, both named after the id that the server gave. The monitor thread
// opens and closes the endpoint, and receives the calls on the object in its context.
class ClientEndpoint {
public:
    // Log lines name the function at here, which is the body of the monitor thread.
    ClientEndpoint(CNSGdbus& client, const Here& here)
        : client_(client), here_(here), name_(CNSGdbus::m_OnnameAcquired, CNSGdbus::m_OnnameLost, &client)
    {
    }
    ~ClientEndpoint() { Close(); }
    ClientEndpoint(const ClientEndpoint&) = delete;
    ClientEndpoint& operator=(const ClientEndpoint&) = delete;

    // Opens the endpoint on a connection, and closes it first if it is open on another one. An endpoint that is open on
    // this connection stays as it is, whatever the id. An id that is not valid in a name or path leaves the endpoint
    // closed. Returns false if the client's XML cannot be used, so that no id can open the endpoint.
    bool Serve(ConnectionOwner connection, const char* id);
    void Close();

private:
    bool ParseXml(const char* id);
    void LogUnfitId(const char* id) const;

    CNSGdbus& client_;
    const Here here_;
    ConnectionOwner connection_;
    ClientName name_;
    bool isOpen_ = false;
};

} // namespace kiv::link
