#ifndef KIV_SERVICE_INTERFACE_H
#define KIV_SERVICE_INTERFACE_H

/**
 * @file
 * Control of wireless network speakers and soundbars from a TV application.
 *
 * Each function is one synchronous request to the network-speaker server over the D-Bus system bus. These rules hold
 * for all functions:
 *
 * - **Results.** An int function returns the server's answer. It returns its failure value, which is -1 unless stated
 *   otherwise, if the device has no network speakers, the server cannot be reached or the request fails. A bool
 *   function returns false then, unless stated otherwise. The platform's log says why, under the tag "NAM_SERVICE".
 * - **Blocking.** A call waits for the server, 8 s at most for each answer. A server that does not answer the request
 *   holds the call up for 8 s. A server that answers nothing at all holds it up for 24 s, because the library asks it
 *   for the client id three times first. While the bus daemon answers at once, the worst is 32 s, and 40 s for
 *   StartNetworkSpeaker(). A bus daemon that hangs holds a call up for 58 s. If the call has to open a connection, it
 *   waits for as long as the daemon hangs. Do not call from a thread that must not wait.
 * - **Threads.** Any thread may call any function, also in a callback. A slow call delays no other call. Callbacks run
 *   on the library's monitor thread, one after another, so they should return soon. Do not call from a
 *   GDBusMessageFilter: GLib runs it on the thread on which it reads all replies, so the call can only time out.
 * - **Signals.** The library's threads, and GLib's, take the signal mask of the thread whose call creates them. If your
 *   host wants its signals on certain threads only, block them in all other threads before these make calls.
 * - **Descriptors and threads.** GLib ends the process if it cannot create a thread or has no file descriptor left. It
 *   may need either in any call.
 * - **Arguments.** A function refuses null if its description says so. Elsewhere, null crashes the process. If D-Bus
 *   cannot carry the arguments, the call fails and they are not sent: a list or payload of over 64 MiB, a text that is
 *   not UTF-8. A bus may carry less than D-Bus allows: dbus-daemon 32 MiB in a message, unless its configuration says
 *   otherwise. It closes the connection that sends a longer message, and the next call opens another connection.
 * - **Losing the bus.** The call that was waiting fails. The next call connects again. Events come again when the host
 *   has subscribed again, because the server forgets a process that has left the bus. The library uses the connection
 *   that GLib shares in the process. If the host still holds this connection after it was lost, the library opens a
 *   connection of its own. It leaves the lost connection and its "closed" signal to GLib and the host.
 * - **Ownership.** The caller owns every buffer, string and vector that it passes. The library keeps no pointer to
 *   them.
 * - **Exceptions.** As long as there is memory, no exception leaves a function unless its description says so. If the
 *   caller is written in C, an exception ends the process.
 * - **C.** The header also compiles as C11. It then lacks the class CNSGdbus and the functions that take a std::vector.
 * - **fork().** The child may exec() or exit in any way, and must not call the library.
 * - **Unloading.** Call CNSGdbus::m_DestroyMessageMonitor on CNSGdbus::m_pInstance before dlclose(). Otherwise the
 *   library stays mapped, because its monitor thread still runs.
 */

#if !defined(__cplusplus) && (!defined(__STDC_VERSION__) || __STDC_VERSION__ < 201112L)
#error "KivServiceInterface.h must be compiled as C11 or later, such as with -std=c11, or as C++"
#endif

#include <pthread.h>

#ifdef __cplusplus
#include <gio/gio.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>
#else
#include <assert.h>
#include <stdalign.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#endif

/** Marks the functions and globals that the library exports. */
#define KIV_API __attribute__((visibility("default")))

/* --- Version ---------------------------------------------------------------------------------------------------- */

/* The build takes the project's version from these three lines. */
#define KIV_VERSION_MAJOR 1 /**< changes when programs have to be compiled again */
#define KIV_VERSION_MINOR 0 /**< changes when something was added */
#define KIV_VERSION_MICRO 0 /**< changes when something was corrected */

/** True if this header has the given version or a later one. The preprocessor can evaluate it. */
#define KIV_CHECK_VERSION(major, minor, micro)                                                       \
    (KIV_VERSION_MAJOR > (major) || (KIV_VERSION_MAJOR == (major) && KIV_VERSION_MINOR > (minor)) || \
     (KIV_VERSION_MAJOR == (major) && KIV_VERSION_MINOR == (minor) && KIV_VERSION_MICRO >= (micro)))

/* --- Lengths ---------------------------------------------------------------------------------------------------- */

#define NETSPK_LIST_NAME_LEN 128   /**< bytes of a display-name field */
#define NETSPK_SPEAKER_TYPE_LEN 22 /**< characters of a speaker-type text; its field has one byte more, for the NUL */
#define NETSPK_MAC_LEN 6           /**< bytes of a MAC address, in transmission order */
#define NETSPK_IP_LEN 4            /**< bytes of an IPv4 address, in dotted order */

#define KIV_SOUNDBAR_DEVICE_INFO_LEN (NETSPK_MAC_LEN + NETSPK_IP_LEN) /**< bytes of a soundbar's identity */
#define KIV_SOUND_MODE_LEN 20                                         /**< bytes of sound-mode data */

/* --- Setting modes ---------------------------------------------------------------------------------------------- */

#define NETSPKSETTING_SURROUND 80  /**< the speakers work as the TV's surround set */
#define NETSPKSETTING_MULTIROOM 81 /**< the speakers work as a multi-room group */

/* --- Events ----------------------------------------------------------------------------------------------------- */

#define NAMSERVICE_EXIT_STATE 0x02020031 /**< the server is exiting */
#define NAMSERVICE_ATMOS_STATE \
    0x02020028 /**< the receiver now supports Dolby Atmos; no event says that it no longer does */

#define NAMSERVICE_EVENT_DATA_MAX 2200 /**< bytes of event data that a subscriber gets at most */

/* --- Records ---------------------------------------------------------------------------------------------------- */

/*
 * A record is sent as it lies in memory: little-endian, without gaps between its fields, texts filled up with NUL. The
 * server and the application agree on the meaning of a field named "opaque". The library carries it and does not read
 * it.
 */
#ifndef __cplusplus
typedef struct STNetSpkListInfo STNetSpkListInfo;
typedef struct STNetSpkListInfo spk_list_info_s;
typedef struct spk_info_s spk_info_s;
typedef struct CNetSpkNodeInfo CNetSpkNodeInfo;
typedef struct STNetSpkConfig STNetSpkConfig;
#endif

#pragma pack(push, 1)

/** A speaker list as the server describes it. */
struct STNetSpkListInfo {
    unsigned char opaque[1086]; /**< carried, and not read */
};

#ifdef __cplusplus
/** The same record under an older name. */
using spk_list_info_s = STNetSpkListInfo;
#endif

/** One active speaker. */
struct spk_info_s {
    unsigned char opaque[183]; /**< carried, and not read */
};

/** One speaker node of the network. */
struct CNetSpkNodeInfo {
    unsigned char opaque[134]; /**< carried, and not read */
};

/** One speaker that is to be started, asked about or set. */
struct STNetSpkConfig {
    int32_t nReserved;                 /**< carried, and not read */
    int32_t nConfig;                   /**< configuration value; the server and the application agree on it */
    unsigned char mac[NETSPK_MAC_LEN]; /**< the speaker's MAC address */
    unsigned char opaque[72];          /**< carried, and not read */
};

#pragma pack(pop)

static_assert(sizeof(STNetSpkListInfo) == 1086 && alignof(STNetSpkListInfo) == 1, "wire layout");
static_assert(sizeof(spk_info_s) == 183 && alignof(spk_info_s) == 1, "wire layout");
static_assert(sizeof(CNetSpkNodeInfo) == 134 && alignof(CNetSpkNodeInfo) == 1, "wire layout");
static_assert(sizeof(STNetSpkConfig) == 86 && alignof(STNetSpkConfig) == 1, "wire layout");
static_assert(offsetof(STNetSpkConfig, nConfig) == 4 && offsetof(STNetSpkConfig, mac) == 8, "wire layout");
static_assert(offsetof(STNetSpkConfig, opaque) == 14, "wire layout");
#ifdef __cplusplus
static_assert(std::is_trivially_copyable<STNetSpkListInfo>::value && std::is_trivially_copyable<spk_info_s>::value, "");
static_assert(
    std::is_trivially_copyable<CNetSpkNodeInfo>::value && std::is_trivially_copyable<STNetSpkConfig>::value, "");
#endif

/* --- Callbacks -------------------------------------------------------------------------------------------------- */

/**
 * Receives a server event. It may end the thread on which it runs, by pthread_exit(). No event comes after that.
 *
 * @param nEventId  id of the event, such as NAMSERVICE_EXIT_STATE; the library passes on every id but 0 unchanged
 * @param pData     NAMSERVICE_EVENT_DATA_MAX bytes; bytes that the server did not send are zero; valid during the call
 *                  only
 * @param nLength   data length that the server announced, NAMSERVICE_EVENT_DATA_MAX at most; may be 0 or negative
 */
typedef void (*NamEventCallback)(int nEventId, void* pData, int nLength); // NOLINT(modernize-use-using): C reads it

/** Is called when the receiver supports Dolby Atmos; @p nSupported is always 1. */
typedef void (*AtmosSupportCallback)(int nSupported, void* pUserData); // NOLINT(modernize-use-using): C reads it

#ifdef __cplusplus

/* --- The bus client --------------------------------------------------------------------------------------------- */

struct _NS_PROXY_ASYNC_EVENT;

/**
 * The library's D-Bus client. The library has one object, CNSGdbus::m_pInstance, and all functions use it. A host needs
 * it only to end the monitor thread with m_DestroyMessageMonitor().
 *
 * If a host builds an object of its own, there are two. The monitor thread serves the object whose GetProxy() is the
 * first of the process to succeed, and m_DestroyMessageMonitor() of that object ends the thread. If the thread serves
 * the host's object, the host must end the thread before it destroys the object. As long as the host's object lives, it
 * is m_pInstance: to reach the library's object, keep the pointer from before.
 *
 * The library's threads use the data members, too. A host must not write them.
 */
class KIV_API CNSGdbus {
public:
    /** Type of a callback that the constructor keeps. Nothing calls it. */
    using EventCallback = void (*)(const _NS_PROXY_ASYNC_EVENT& event, void* pUserData);

    /** The object that was built last. Once it is gone, and if the host has built none, the library's own object. */
    static CNSGdbus* m_pInstance;

    /** Stores its arguments, and becomes m_pInstance. It uses no bus, and never calls the callback. */
    CNSGdbus(const std::string& strProxyName, EventCallback pfnEventCallback, void* pUserData);

    /**
     * Drops the connection. If this object is m_pInstance, the library's own object becomes m_pInstance. The destructor
     * does not end the monitor thread.
     */
    ~CNSGdbus();

    CNSGdbus(const CNSGdbus&) = delete;
    CNSGdbus& operator=(const CNSGdbus&) = delete;

    /**
     * Gets a bus connection and asks the server for the client id. The first call that succeeds starts the monitor
     * thread.
     *
     * @param pszXml         introspection XML of the client object; a "%s" in it stands for the client id
     * @param vtable         handlers of the client object
     * @param bReuse         a connection that is held already is enough, and nothing is sent then
     * @param bNoOwnerCheck  ask for the id without asking first whether the server runs, so that the bus starts it
     * @return whether the server gave this process its client id (or, with @p bReuse, a connection is held)
     */
    bool GetProxy(const char* pszXml, GDBusInterfaceVTable vtable, bool bReuse, bool bNoOwnerCheck);

    /** Drops the bus connection, if one is held. */
    void GiveProxy();

    /**
     * Calls a method of the server and waits for its reply, 8 s at most.
     *
     * @param strMethod      method of the server's interface
     * @param pInput         argument tuple, or null for none; consumed if floating
     * @param ppOutput       gets the reply, which the caller owns, or null if the call failed; keeps its value if the
     *                       client holds no connection or the server does not run; may be null
     * @param bNoOwnerCheck  call without asking first whether the server runs, so that the bus starts it
     * @return whether a reply came
     */
    bool MethodCall(std::string strMethod, GVariant* pInput, GVariant** ppOutput, bool bNoOwnerCheck);

    /** Asks the server for this process's client id and keeps it in m_strClientName. */
    bool m_GetProxyObj(bool bNoOwnerCheck);

    /** Asks the bus whether @p pszName has an owner. */
    bool m_IsExistedBusname(const char* pszName);

    /** Body of the monitor thread; @p pInstance is the CNSGdbus that it serves. Returns null. */
    static void* m_Monitor(void* pInstance);
    /** Puts the client object on the bus, before the client's name is asked for. */
    static void m_OnbusAcquired(GDBusConnection* pConnection, const gchar* pszName, gpointer pInstance);
    /** Is told that the client's name is owned, and does nothing. */
    static void m_OnnameAcquired(GDBusConnection* pConnection, const gchar* pszName, gpointer pInstance);
    /** Is told that the client's name is lost or taken, and does nothing. */
    static void m_OnnameLost(GDBusConnection* pConnection, const gchar* pszName, gpointer pInstance);

    /**
     * Ends the monitor thread, if it runs and serves this object, and waits for its end. No callback runs after that
     * for the life of the process. The function waits for a callback that is running, and for nothing else. It may be
     * called at any time and repeatedly. Inside a callback it cannot wait for itself, and returns EDEADLK. The thread
     * ends when the callback has returned, and no event comes after that.
     *
     * @return 0, also if the thread does not serve this object; otherwise the error number of pthread_join()
     */
    int m_DestroyMessageMonitor();

    std::string m_strClientName;              /**< client id from the server; empty until the server gave one */
    pthread_t m_MonitorThread;                /**< 0 when there is no monitor thread */
    std::string m_strIntrospectionXml;        /**< XML last given to GetProxy() */
    GDBusNodeInfo* m_pDbusNodeInfo;           /**< parsed XML; the monitor thread uses it */
    GMainLoop* m_pMainLoop;                   /**< loop of the monitor thread */
    GDBusConnection* m_pConnection;           /**< owns one reference */
    GDBusInterfaceVTable m_stInterfaceVTable; /**< handlers last given to GetProxy() */
    unsigned int m_nRegistrationId;           /**< number of the registered client object; 0 when not registered */
    std::string m_strProxyName;               /**< name given to the constructor */
    bool m_bProxyReady;                       /**< a connection obtained by GetProxy() is held */
    EventCallback m_pfnEventCallback;         /**< kept, never called */
    void* m_pUserData;                        /**< kept, never used */
};

extern "C" {

#endif

/* --- Globals ---------------------------------------------------------------------------------------------------- */

extern KIV_API bool g_KivDisabled;         /**< the device has no network speakers; valid if g_GetSystemVal is true */
extern KIV_API bool g_GetSystemVal;        /**< the device's feature key has been read */
extern KIV_API char g_strDeviceName[128];  /**< for the host's use; the library neither reads nor writes it */
extern KIV_API pthread_t m_launchthreadId; /**< the thread that is bringing the server up, or 0 */

/**
 * Tells whether the device has no network speakers.
 *
 * Each call reads the device feature "com.molvane/featureconf/kiv_multi_ch_support", until one succeeds. The library
 * then keeps the answer.
 *
 * @return true if the feature is off; false if it is on or cannot be read
 */
KIV_API bool GetWhetherKivDisabled(void);

/* --- Events ----------------------------------------------------------------------------------------------------- */

/**
 * Subscribes to the events of the server: the library calls @p callback for each event from now on that can arrive.
 *
 * Events can arrive a moment after the first call that the server answers, and again after the bus was lost: the
 * monitor thread asks the bus for the client's name, and no caller waits for that. An event that the server sends
 * before is lost. A host that subscribes, and at once makes a request whose answer is an event, may miss that event: it
 * repeats the request until the event comes.
 *
 * Callbacks are called in the byte order of their names. If the request to the server fails, the result is 0, but the
 * callback is in place all the same. UnsubscribeNamServiceCallback() removes it.
 *
 * A server that is started again, such as after a crash, knows no subscription, and calls succeed all the same. Watch
 * the owner of the server's bus name, and subscribe again under the same name when the bus name has a new owner. A host
 * that cannot watch it subscribes again at intervals.
 *
 * @param name      name of the subscription; a second subscription of the same name replaces the first
 * @param callback  called on the monitor thread; an exception that it throws is logged and dropped
 * @return 1; 0 if an argument is null, the device has no network speakers, the server cannot be reached or the request
 *         fails
 */
KIV_API int SubscribeNamServiceCallback(const char* name, NamEventCallback callback);

/**
 * Ends the subscription with this name. It does not wait for a callback that is running at this moment.
 *
 * The server counts the requests of a process, without names. If it has been started again, renew all subscriptions and
 * Atmos callbacks before you end one of them: the end takes one request away, also if no subscription has this name.
 * The process gets no event when none is left.
 *
 * If the device has no network speakers or the server cannot be reached, the subscription stays.
 *
 * @param name  name of the subscription; it is not an error if no such subscription exists
 * @throws std::logic_error if @p name is null
 */
KIV_API void UnsubscribeNamServiceCallback(const char* name);

/**
 * Tells the server to stop watching a node.
 *
 * @param node  number of the node, passed through unchanged
 * @return the server's answer; 0 if the request fails; -1 if the device has no network speakers or the server cannot
 *         be reached
 */
KIV_API int NodeRemoveFromWatcher(int node);

/* --- Dolby Atmos ------------------------------------------------------------------------------------------------ */

/** Asks whether the connected receiver supports Dolby Atmos. @return the server's answer, or false */
KIV_API bool kiv_is_receiver_atmos(void);

/**
 * Registers a callback for Atmos: the library calls @p callback with 1 and @p user_data each time the server reports
 * that the receiver supports Atmos.
 *
 * The server does not report that the support has ended, and a report that comes before events can arrive is lost, as
 * SubscribeNamServiceCallback() says. Call kiv_is_receiver_atmos() to get the present state.
 * Callbacks are called in the order of their registration, before the event's subscribers.
 *
 * A server that is started again does not know that this process wants events, as SubscribeNamServiceCallback() says.
 * Register the callback again then: the function sends the request, and then returns -1, because the callback is
 * registered already.
 *
 * @param callback   called on the monitor thread; an exception that it throws is logged and dropped
 * @param user_data  passed to the callback
 * @return 0, also if the request fails and the callback is not registered; -1 if @p callback is null or registered
 *         already, the device has no network speakers or the server cannot be reached
 */
KIV_API int register_atmos_support_cb(AtmosSupportCallback callback, void* user_data);

/**
 * Ends a registration. It does not wait for a callback that is running at this moment. If the server has been started
 * again, renew all requests first, as UnsubscribeNamServiceCallback() says.
 *
 * @return 0; -1 if @p callback is null or not registered, or if the device has no network speakers, the server cannot
 *         be reached or the request fails: the callback stays registered in these three cases
 */
KIV_API int unregister_atmos_support_cb(AtmosSupportCallback callback);

/* --- Starting and stopping speakers ----------------------------------------------------------------------------- */

#ifdef __cplusplus
/**
 * Routes the TV's sound to network speakers.
 *
 * The library sends the setting mode first, and the speaker list second. It sends the list even if the server answers
 * -1 to the mode.
 *
 * @param nMode         setting mode, passed through unchanged
 * @param list          speakers to start, 86 bytes each, sent in this order; may be empty
 * @param nStartReason  reason code; the server and the application agree on it; passed through unchanged
 * @return the server's answer; -1 if the device has no network speakers, the server cannot be reached or a request
 *         fails
 */
KIV_API int StartNetworkSpeaker(int nMode, std::vector<STNetSpkConfig>& list, int nStartReason);
#endif

/**
 * Routes the TV's sound back from the network speakers.
 *
 * @param nStopType  stop type; the server and the application agree on it; passed through unchanged
 * @return the server's answer, or -1
 */
KIV_API int StopNetworkSpeaker(int nStopType);

/** Switches surround operation off. @return the server's answer, or -1 */
KIV_API int DisableSurround(void);

/** Asks for the number of surround channels. @return the server's answer, or -1 */
KIV_API int GetSurroundChannelNumber(void);

/* --- Speaker lists ---------------------------------------------------------------------------------------------- */

/**
 * @name Speaker lists
 * These functions append to vectors by push_back(). If there is no memory, the exception of push_back() leaves the
 * function.
 * @{
 */

#ifdef __cplusplus
/**
 * Asks for the active speaker group and its speakers.
 *
 * Without a usable answer, both buffers stay as they are.
 *
 * @param pDisplayName  gets NETSPK_LIST_NAME_LEN bytes: the group's display name; a name that fills the field has no
 *                      NUL
 * @param pSpeakerType  gets NETSPK_SPEAKER_TYPE_LEN + 1 bytes: the speaker type; a text that fills the field has no NUL
 * @param list          the active speakers are appended to it
 * @return the number of speakers that the server announced, which may be any number: if the server sent fewer speakers,
 *         none was appended; 0 if the server sent nothing usable; -1 if the device has no network speakers, the server
 *         cannot be reached or the request fails
 */
KIV_API int GetActiveNetSpkInfo(char* pDisplayName, char* pSpeakerType, std::vector<spk_info_s>& list);

/**
 * Asks for all speaker lists.
 *
 * @param list  emptied once the server is reached, then filled
 * @return the number of records in @p list; 0 if the server sent less than one record; -1 on failure
 */
KIV_API int GetNetSpkListInfo(std::vector<STNetSpkListInfo>& list);
#endif

/**
 * Asks for all speaker lists as GetNetSpkListInfo() does, and copies them into a plain array.
 *
 * @param pList  gets every record that the server sends, without a limit: ask GetNetSpkListInfoNumber() for their
 *               number first, and leave room for lists that appear in between
 * @return as GetNetSpkListInfo()
 */
KIV_API int getNetSpkListInfo(STNetSpkListInfo* pList);

/** Asks for the number of speaker lists. @return the server's answer; -1 on failure; 0 if it is not a number */
KIV_API int GetNetSpkListInfoNumber(void);

#ifdef __cplusplus
/**
 * Asks for the speaker nodes of the network.
 *
 * @param list  emptied once the server is reached, then filled
 * @return the number of records in @p list; 0 if the server sent less than one record; -1 on failure, and if the server
 *         sent no byte at all, which is also its answer if there is no node
 */
KIV_API int GetNetSpkNodeList(std::vector<CNetSpkNodeInfo>& list);
#endif

/** @} */

/* --- Connecting speakers ---------------------------------------------------------------------------------------- */

/**
 * Has the server connect a speaker on behalf of a mobile device.
 *
 * @param pParam     payload; the server and the application agree on it
 * @param nParamLen  bytes of the payload; may be 0
 * @return the server's answer; -1 on failure and if @p pParam is null
 */
KIV_API int ConnectNetworkSpeakerByMobile(const unsigned char* pParam, unsigned int nParamLen);

/**
 * Has the server start the speaker with this identifier. The library sends the numbers unchanged, in another order, and
 * does not read them. The server's interface gives them these meanings:
 *
 * @param pszID    identifier; its first five characters are sent
 * @param nFirst   setting mode, such as NETSPKSETTING_SURROUND; the second number of the request
 * @param nSecond  channel that the speaker is to play; the first number of the request
 * @param nThird   reason of the start, as in StartNetworkSpeaker(); the third number of the request
 * @return the server's answer; 0 if the request fails or @p pszID is null or shorter than five characters; -1 if the
 *         device has no network speakers, the server cannot be reached or its answer is not a number
 */
KIV_API int Vireon_StartNetworkSpeakerByID(const char* pszID, int nFirst, int nSecond, int nThird);

/**
 * Has the server start the speaker with this node number. The library sends the numbers unchanged, in another order,
 * and does not read them. The server's interface gives them these meanings:
 *
 * @param nFirst   setting mode, such as NETSPKSETTING_SURROUND; the second number of the request
 * @param nSecond  number of the speaker's node; the first number of the request
 * @param nThird   reason of the start, as in StartNetworkSpeaker(); the third number of the request
 * @return the server's answer; 0 if the request fails; -1 if the device has no network speakers, the server cannot be
 *         reached or its answer is not a number
 */
KIV_API int StartNetworkSpeakerByID(int nFirst, int nSecond, int nThird);

/**
 * Asks how a speaker is connected.
 *
 * @param nSpeakerID  number of the speaker
 * @return the server's answer; 0 if the request fails; -1 if the device has no network speakers, the server cannot be
 *         reached or its answer is not a number
 */
KIV_API int GetSpksConnectionTypeByID(int nSpeakerID);

#ifdef __cplusplus
/**
 * Asks how speakers are connected.
 *
 * @param pList  the speakers; may be empty
 * @return the server's answer; -1 on failure and if @p pList is null; 0 if there is no memory for the request
 */
KIV_API int GetSpksConnectionType(std::vector<STNetSpkConfig>* pList);
#endif

/**
 * Has the server connect newly found speakers.
 *
 * @param connectNewSpeakersMacAddrLists  MAC addresses back to back, NETSPK_MAC_LEN bytes each
 * @param nNewSpeakersCount               number of the addresses, at least 1
 * @return the server's answer; -1 on failure, if the list is null and if the number is below 1
 */
KIV_API int AutoConnectNewSpeakers(const unsigned char* connectNewSpeakersMacAddrLists, int nNewSpeakersCount);

/** Has the server connect newly found outdoor speakers. Arguments and result are those of AutoConnectNewSpeakers(). */
KIV_API int
AutoConnectNewSpeakersForOutdoor(const unsigned char* connectNewSpeakersMacAddrLists, int nNewSpeakersCount);

/**
 * Has the server connect a speaker directly, for setting it up without an infrastructure network.
 *
 * @param nParam  passed through unchanged
 * @return the server's answer, or -1
 */
KIV_API int ConnectToSpeakerForInfraLessSetup(int nParam);

/**
 * Has the server start a speaker group on behalf of a mobile device.
 *
 * @param nParam  passed through unchanged
 * @return the server's answer, or -1
 */
KIV_API int StartNetworkSpeakerGroupByMobile(int nParam);

/* --- Choosing the multi-room link ------------------------------------------------------------------------------- */

/**
 * @name Questions about the multi-room feature (Tavrin)
 * They return true if the server says so, and false if it does not or on any failure.
 * @{
 */
KIV_API bool CanCancelTavrin(void); /**< Asks whether Tavrin may be cancelled. */
KIV_API bool PreSelectTavrin(void); /**< Preselects Tavrin, and returns whether it is preselected. */
KIV_API bool CanSelectTavrin(void); /**< Asks whether Tavrin may be selected. */
/** @} */

/* --- Test tones ------------------------------------------------------------------------------------------------- */

/**
 * Starts the test tone of a speaker. Only the log shows a failure.
 *
 * @param pMac        the speaker's MAC address, NETSPK_MAC_LEN bytes; nothing is sent if null
 * @param nTestParam  passed through unchanged
 * @param nChType     channel type, passed through unchanged
 * @param nTestExtra  passed through unchanged
 */
KIV_API void StartNetSpkTest(const unsigned char* pMac, int nTestParam, int nChType, int nTestExtra);

/** Stops the test tone of a speaker. The arguments have the same meaning as in StartNetSpkTest(). */
KIV_API void StopNetSpkTest(const unsigned char* pMac, int nTestParam, int nTestExtra);

/* --- Sound mode of a soundbar ----------------------------------------------------------------------------------- */

/**
 * Sends sound-mode data to a soundbar. Only the log shows a failure.
 *
 * @param pMac      the soundbar's MAC address, NETSPK_MAC_LEN bytes
 * @param nIP       its IPv4 address, first dotted octet in the lowest byte; passed through unchanged
 * @param pData     the data; nothing is sent if it or @p pMac is null
 * @param nDataLen  bytes of the data; may be 0; nothing is sent if negative
 */
KIV_API void SetSoundbarSoundMode(const unsigned char* pMac, int nIP, const unsigned char* pData, int nDataLen);

/**
 * Asks for the soundbar and its sound mode.
 *
 * Without a usable answer, both buffers stay as they are.
 *
 * @param soundbarDeviceInfo  gets KIV_SOUNDBAR_DEVICE_INFO_LEN bytes: MAC address, then IPv4 address in dotted order
 * @param soundmodeData       gets KIV_SOUND_MODE_LEN bytes
 * @return the length of the sound-mode data that the server states, which may be negative; 0 if the server sent nothing
 *         usable, or if the stated length does not fit the data (both buffers are filled then); -1 on failure
 */
KIV_API int GetSoundbarSoundMode(unsigned char* soundbarDeviceInfo, unsigned char* soundmodeData);

/**
 * Asks for the soundbar.
 *
 * @param soundbarDeviceInfo  gets KIV_SOUNDBAR_DEVICE_INFO_LEN bytes: MAC address, then IPv4 address in dotted order;
 *                            without a usable answer, the buffer stays as it is
 * @return the number that the server sends with the soundbar, which may be negative; 0 if the server sent nothing
 *         usable; -1 on failure
 */
KIV_API int GetSoundbarDeviceInfo(unsigned char* soundbarDeviceInfo);

/**
 * Tells the server whether a soundbar supports sound modes. Only the log shows a failure.
 *
 * @param pMac             the soundbar's MAC address, NETSPK_MAC_LEN bytes; nothing is sent if null
 * @param nIP              its IPv4 address, first dotted octet in the lowest byte; passed through unchanged
 * @param nSupportedOrNot  0 for no, any other number for yes; passed through unchanged
 */
KIV_API void SetSoundbarSupportSoundMode(const unsigned char* pMac, int nIP, int nSupportedOrNot);

/**
 * Asks for a soundbar's sound-mode protocol version.
 *
 * @param soundbarMAC           the soundbar's MAC address, NETSPK_MAC_LEN bytes
 * @param pSoundModeVersion     gets the version data, KIV_SOUND_MODE_LEN bytes at most; stays as it is on failure
 * @param nSoundModeVersionLen  bytes of the buffer, at least 1
 * @return the protocol version; -1 on failure, if a pointer is null or the length is below 1, and if the server's
 *         answer is not a version with KIV_SOUND_MODE_LEN bytes of data
 */
KIV_API int GetSoundbarProtocolVersion(
    const unsigned char* soundbarMAC, unsigned char* pSoundModeVersion, int nSoundModeVersionLen);

/**
 * Asks whether a soundbar supports sound modes.
 *
 * @param soundbarMAC  the soundbar's MAC address, NETSPK_MAC_LEN bytes
 * @return true if the server says so; false if it does not, on any failure, and if @p soundbarMAC is null
 */
KIV_API bool IsSoundbarSupportSoundMode(const unsigned char* soundbarMAC);

/* --- Names and volumes ------------------------------------------------------------------------------------------ */

/**
 * @name Requests for names and volumes
 * These functions hand a request to the server and return nothing. Only the log shows a failure. The server reports by
 * events what it did.
 *
 * - pMac: the speaker's MAC address, NETSPK_MAC_LEN bytes; nothing is sent if null
 * - nIP: its IPv4 address, first dotted octet in the lowest byte; passed through unchanged, also 0; the server decides
 *   how it uses the address
 * - list: the speakers; may be empty
 * @{
 */

/** Renames a speaker. pSpkName: UTF-8, may be empty; nothing is sent if null, not UTF-8 or of about 128 MiB or more */
KIV_API void SetNetSpkName(const unsigned char* pMac, int nIP, const char* pSpkName);

/** Sets a speaker's volume. nVolume: passed through unchanged; the server decides on the range of volumes */
KIV_API void SetNetSpkVolume(const unsigned char* pMac, int nIP, int nVolume);

/** Has the server report a speaker's volume. */
KIV_API void GetNetSpkVolume(const unsigned char* pMac, int nIP);

KIV_API void IncreaseNetSpkVolume(const unsigned char* pMac, int nIP); /**< Turns a speaker up by one step. */
KIV_API void DecreaseNetSpkVolume(const unsigned char* pMac, int nIP); /**< Turns a speaker down by one step. */
KIV_API void ResetNetSpkVolume(const unsigned char* pMac, int nIP);    /**< Sets a speaker to the server's default. */
KIV_API void ResetAllNetSpkVolume(void);                               /**< Sets all speakers to the default. */

#ifdef __cplusplus
KIV_API void IncreaseNetSpkVolumeList(const std::vector<STNetSpkConfig>& list); /**< Turns speakers up by one step. */
KIV_API void DecreaseNetSpkVolumeList(const std::vector<STNetSpkConfig>& list); /**< Turns speakers down by one step. */
KIV_API void ResetNetSpkVolumeList(const std::vector<STNetSpkConfig>& list);    /**< Sets speakers to the default. */
KIV_API void GetNetSpkVolumeList(const std::vector<STNetSpkConfig>& list);      /**< Has the server report volumes. */
#endif

/** @} */

/* --- Setting modes ---------------------------------------------------------------------------------------------- */

/**
 * Sets the mode of the multi-room settings screen.
 *
 * @param mode  NETSPKSETTING_SURROUND, NETSPKSETTING_MULTIROOM or another number; passed through unchanged
 * @return the server's answer, or -1
 */
KIV_API int SetTavrinUIMode(int mode);

/**
 * Asks for the mode of the multi-room settings screen.
 *
 * @return the mode; NETSPKSETTING_SURROUND if the mode is NETSPKSETTING_MULTIROOM, if the request fails and if the
 *         server answers -1; -1 if the device has no network speakers or the server cannot be reached
 */
KIV_API int GetTavrinUIMode(void);

/** Asks for the mode in which the speaker system works. @return as GetTavrinUIMode() */
KIV_API int GetNetSpkSettingMode(void);

/*
 * The next two functions do not wait for an absent server. A thread of the library goes on trying to bring the server
 * up.
 */

/** Asks whether the multi-room settings may be entered. @return the server's answer; false on any failure */
KIV_API bool CanEnterTavrinSettings(void);

/**
 * Asks whether network speakers are enabled.
 *
 * @return the server's answer; true if the device has no network speakers or the server cannot be reached; false if the
 *         request fails
 */
KIV_API bool FlagEnableNetworkSpeaker(void);

/* --- Entry points of an older interface ------------------------------------------------------------------------- */

/*
 * These functions read no argument and always return the same value: 0 unless stated otherwise. They exist so that
 * hosts of the older interface still link.
 */

#if defined(__cplusplus) || __STDC_VERSION__ >= 202311L
#define KIV_ANY_ARGUMENTS ... /**< parameters of a function that accepts any arguments */
#else
#define KIV_ANY_ARGUMENTS
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wstrict-prototypes"
#endif

KIV_API int get_size_of_spk_list_info_s(KIV_ANY_ARGUMENTS); /**< 1086, the size of spk_list_info_s */
KIV_API int get_size_of_spk_info_s(KIV_ANY_ARGUMENTS);      /**< 183, the size of spk_info_s */
KIV_API int GetLastConnectSatIdx(KIV_ANY_ARGUMENTS);        /**< -1 */
KIV_API int SPK_IsConnectToTV(KIV_ANY_ARGUMENTS);           /**< 0, and a log line */

KIV_API int SPK_NotifySpkVolumeTable(KIV_ANY_ARGUMENTS);           /**< 0 */
KIV_API int SPK_NotifyAudioCtrl(KIV_ANY_ARGUMENTS);                /**< 0 */
KIV_API int SPK_GetGroupInfo(KIV_ANY_ARGUMENTS);                   /**< 0 */
KIV_API int SPK_GetSelfAndAllCandidateNodeInfo(KIV_ANY_ARGUMENTS); /**< 0 */
KIV_API int SPK_GetMacFromDi(KIV_ANY_ARGUMENTS);                   /**< 0 */
KIV_API int SPK_GetSourceExtraNodeInfo(KIV_ANY_ARGUMENTS);         /**< 0 */
KIV_API int SPK_SetBTModeDelay(KIV_ANY_ARGUMENTS);                 /**< 0 */
KIV_API int SPK_getSelfAndAllNodeInfo(KIV_ANY_ARGUMENTS);          /**< 0 */
KIV_API int SPK_GetSelfAndAllNodeInfo(KIV_ANY_ARGUMENTS);          /**< 0 */
KIV_API int SPK_SendCalData(KIV_ANY_ARGUMENTS);                    /**< 0 */
KIV_API int SPK_UnGroupHts(KIV_ANY_ARGUMENTS);                     /**< 0 */
KIV_API int SPK_GetGroupHts(KIV_ANY_ARGUMENTS);                    /**< 0 */
KIV_API int SPK_SetHtsVolume(KIV_ANY_ARGUMENTS);                   /**< 0 */
KIV_API int SPK_SetHtsMute(KIV_ANY_ARGUMENTS);                     /**< 0 */
KIV_API int SPK_GetHtsVolume(KIV_ANY_ARGUMENTS);                   /**< 0 */
KIV_API int SPK_GetHtsMute(KIV_ANY_ARGUMENTS);                     /**< 0 */
KIV_API int SPK_NotifySounbarSettings(KIV_ANY_ARGUMENTS);          /**< 0 */
KIV_API int SPK_getAllNodeInfo(KIV_ANY_ARGUMENTS);                 /**< 0 */
KIV_API int SPK_GetAllNodeInfo(KIV_ANY_ARGUMENTS);                 /**< 0 */
KIV_API int SPK_GetNumberOfNode(KIV_ANY_ARGUMENTS);                /**< 0 */
KIV_API int SPK_NotifyPlayStatus(KIV_ANY_ARGUMENTS);               /**< 0 */
KIV_API int SPK_NotifyMasterStatusLED(KIV_ANY_ARGUMENTS);          /**< 0 */
KIV_API int SPK_NotifyAlarmVolume(KIV_ANY_ARGUMENTS);              /**< 0 */
KIV_API int SPK_NotifySleepMode(KIV_ANY_ARGUMENTS);                /**< 0 */
KIV_API int SPK_ChangeVolume(KIV_ANY_ARGUMENTS);                   /**< 0 */
KIV_API int SPK_NotifySpkVolume(KIV_ANY_ARGUMENTS);                /**< 0 */
KIV_API int SPK_NotifySpkMute(KIV_ANY_ARGUMENTS);                  /**< 0 */
KIV_API int SPK_SetKivMode_singleTV(KIV_ANY_ARGUMENTS);            /**< 0 */
KIV_API int SPK_SetKivMode_Lastmemory(KIV_ANY_ARGUMENTS);          /**< 0 */
KIV_API int SPK_SetKivMode(KIV_ANY_ARGUMENTS);                     /**< 0 */
KIV_API int SPK_SetSpkProperty(KIV_ANY_ARGUMENTS);                 /**< 0 */
KIV_API int SPK_UnGroup(KIV_ANY_ARGUMENTS);                        /**< 0 */
KIV_API int SPK_SetMultiSpkGroup(KIV_ANY_ARGUMENTS);               /**< 0 */
KIV_API int SPK_SetMultiChGroup(KIV_ANY_ARGUMENTS);                /**< 0 */
KIV_API int SPK_SetMute(KIV_ANY_ARGUMENTS);                        /**< 0 */
KIV_API int SPK_SetVolume(KIV_ANY_ARGUMENTS);                      /**< 0 */

#ifdef __cplusplus
} // extern "C"
#elif __STDC_VERSION__ < 202311L
#pragma GCC diagnostic pop
#endif

#endif
