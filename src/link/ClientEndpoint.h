#pragma once

#include "KivServiceInterface.h"
#include "link/ClientName.h"
#include "link/Log.h"
#include "link/Owners.h"

namespace kiv::link {

// Every call hands these to GetProxy(): the client object as the server calls it, and its handlers.
extern const char* const kClientXml;
extern const GDBusInterfaceVTable kClientVTable;

/*
 * The client's object and bus name on one connection, named after the id that the server gave. The monitor thread opens
 * and closes it, and receives in its context what is sent to it.
 */
class ClientEndpoint {
public:
    // Lines are logged on behalf of the monitor thread's body.
    ClientEndpoint(CNSGdbus& client, const Here& here)
        : client_(client), here_(here), name_(CNSGdbus::m_OnnameAcquired, CNSGdbus::m_OnnameLost, &client)
    {
    }
    ~ClientEndpoint() { Close(); }
    ClientEndpoint(const ClientEndpoint&) = delete;
    ClientEndpoint& operator=(const ClientEndpoint&) = delete;

    // Opens the endpoint on a connection, after closing it on another one. An endpoint that is open on this connection
    // stays where it is, whatever the id; an id that allows none leaves it closed. False if the client's XML is unfit,
    // so that there can be no endpoint whatever the id.
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
