#include "link/Launch.h"

#include "KivServiceInterface.h"
#include "link/ApiCall.h"
#include "link/BusClient.h"
#include "link/ClientEndpoint.h"
#include "link/LibraryPin.h"

#include <pthread.h>

#include <mutex>

pthread_t m_launchthreadId;

namespace kiv::link {

namespace {

constexpr int kMaxRetries = 5;

// Guards the variables below and m_launchthreadId. StartThread() holds it during pthread_create(), because the thread
// may end before its creator has noted its id.
std::mutex g_LaunchMutex;
int g_dbusretrycnt;
// The pin of the launch thread. dlopen() returns the same handle each time, so one variable serves all launch threads.
void* g_pin;

bool IsRunning()
{
    const std::lock_guard lock(g_LaunchMutex);
    return m_launchthreadId != 0;
}

void SetRetryCount(int count)
{
    const std::lock_guard lock(g_LaunchMutex);
    g_dbusretrycnt = count;
}

int CountRetry()
{
    const std::lock_guard lock(g_LaunchMutex);
    return ++g_dbusretrycnt;
}

void* Pin()
{
    const std::lock_guard lock(g_LaunchMutex);
    return g_pin;
}

int StartThread(const pthread_attr_t& attributes)
{
    void* pin = PinLibrary();
    std::unique_lock lock(g_LaunchMutex);
    g_pin = pin;
    pthread_t thread = 0;
    const int result = pthread_create(&thread, &attributes, m_MainLaunchPro, nullptr);
    if (result == 0) {
        m_launchthreadId = thread;
        return result;
    }
    lock.unlock();
    UnpinLibrary(pin);
    return result;
}

} // namespace

ConnectionOwner s_pre_checking()
{
    ApiCall call(KIV_HERE);
    if (call.TryOnce() != ApiCall::Attempt::kUnreachable) {
        return call.TakeConnection();
    }
    if (IsRunning()) {
        KIV_LOG_INFO("reset try count");
        SetRetryCount(0);
    } else {
        KIV_LOG_INFO("before m_CreateThread");
        m_CreateThread();
    }
    return nullptr;
}

int m_CreateThread()
{
    int started = 0;
    pthread_attr_t attributes{};
    if (pthread_attr_init(&attributes) != 0) {
        KIV_LOG_INFO("[NAM-SEQ3] pthread_attr_init(m_CreateThread) fail");
    } else if (pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) != 0) {
        KIV_LOG_INFO("[NAM-SEQ3] pthread_attr_setdetachstate(m_CreateThread) fail");
    } else if (const int result = StartThread(attributes); result == 0) {
        KIV_LOG_INFO("[NAM-SEQ2] pthread_create(m_CreateThread) successful");
        started = 1;
    } else {
        KIV_LOG_INFO("[NAM-SEQ2] pthread_create(m_CreateThread) fail iRet=[%d]", result);
    }
    pthread_attr_destroy(&attributes);
    return started;
}

void* m_MainLaunchPro(void* /*unused*/)
{
    UnpinLibraryAtThreadEnd(Pin());
    SetRetryCount(0);
    KIV_LOG_INFO("enter t_ImplementSimulateDbus g_dbusretrycnt=[%d]", 0);
    int retries = 0;
    while (retries <= kMaxRetries) {
        ns_proxy.GetProxy(kClientXml, kClientVTable, true, true);
        const bool succeeded = ns_proxy.GetProxy(kClientXml, kClientVTable, false, false);
        KIV_LOG_INFO("bChecking=[%d]", succeeded);
        if (succeeded) {
            break;
        }
        retries = CountRetry();
        KIV_LOG_INFO("g_dbusretrycnt=[%d]", retries);
    }
    const std::lock_guard lock(g_LaunchMutex);
    m_launchthreadId = 0;
    return nullptr;
}

} // namespace kiv::link
