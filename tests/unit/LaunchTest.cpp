#include "src/link/Launch.h"

#include "support/BusTest.h"
#include "support/Gate.h"
#include "support/Wait.h"

#include <pthread.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <utility>

using namespace kiv::test;
using kiv::link::m_CreateThread;
using kiv::link::m_MainLaunchPro;
using kiv::link::s_pre_checking;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

// The launch threads of this process: which calls before their creation fail, how many there were, and whether they
// have ended.
class LaunchThreads {
public:
    // The error numbers that the calls return. With 0, they do their work.
    int initFailure = 0;
    int detachFailure = 0;
    int createFailure = 0;

    int Create(pthread_t* thread, const pthread_attr_t* attributes);

    int Started()
    {
        const std::lock_guard lock(mutex_);
        return started_;
    }

    void WaitForEnd(int count = 1)
    {
        std::unique_lock lock(mutex_);
        WaitUntil(std::to_string(count) + " launch threads to end", changed_, lock, [&] { return ended_ >= count; });
    }

private:
    static void* Run(void* self);

    std::mutex mutex_;
    std::condition_variable changed_;
    int started_ = 0;
    int ended_ = 0;
};

LaunchThreads g_launch;

// The attributes of the launch thread. A sanitizer's runtime calls the same functions for other threads, so a test says
// when m_CreateThread is about to be called on its thread.
struct Attributes {
    bool areExpected = false;
    const pthread_attr_t* alive = nullptr;
    int destroyed = 0;
};

thread_local Attributes g_attributes;

} // namespace

extern "C" {

// The linker puts these functions in place of the C library's (--wrap), and gives those the other names.
int __real_pthread_attr_init(pthread_attr_t*);
int __real_pthread_attr_setdetachstate(pthread_attr_t*, int);
int __real_pthread_attr_destroy(pthread_attr_t*);
int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

int __wrap_pthread_attr_init(pthread_attr_t* attributes)
{
    if (std::exchange(g_attributes.areExpected, false)) {
        if (g_launch.initFailure != 0) {
            return g_launch.initFailure;
        }
        g_attributes.alive = attributes;
    }
    return __real_pthread_attr_init(attributes);
}

int __wrap_pthread_attr_setdetachstate(pthread_attr_t* attributes, int state)
{
    if (attributes == g_attributes.alive && g_launch.detachFailure != 0) {
        return g_launch.detachFailure;
    }
    return __real_pthread_attr_setdetachstate(attributes, state);
}

int __wrap_pthread_attr_destroy(pthread_attr_t* attributes)
{
    if (attributes == g_attributes.alive) {
        g_attributes.alive = nullptr;
        ++g_attributes.destroyed;
    }
    return __real_pthread_attr_destroy(attributes);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument)
{
    return body == m_MainLaunchPro ? g_launch.Create(thread, attributes)
                                   : __real_pthread_create(thread, attributes, body, argument);
}
}

namespace {

int LaunchThreads::Create(pthread_t* thread, const pthread_attr_t* attributes)
{
    int state = -1;
    pthread_attr_getdetachstate(attributes, &state);
    EXPECT_EQ(state, PTHREAD_CREATE_DETACHED);
    if (createFailure != 0) {
        return createFailure;
    }
    const std::lock_guard lock(mutex_);
    ++started_;
    return __real_pthread_create(thread, attributes, Run, this);
}

void* LaunchThreads::Run(void* self)
{
    m_MainLaunchPro(nullptr);
    auto& launch = *static_cast<LaunchThreads*>(self);
    const std::lock_guard lock(launch.mutex_);
    ++launch.ended_;
    launch.changed_.notify_all();
    return nullptr;
}

const std::string kStart = StartLine("s_pre_checking");
const std::string kBeforeCreate = "I s_pre_checking: before m_CreateThread";
const std::string kReset = "I s_pre_checking: reset try count";
const std::string kCreated = "I m_CreateThread: [NAM-SEQ2] pthread_create(m_CreateThread) successful";

const std::string kThreadEnter = "I m_MainLaunchPro: enter t_ImplementSimulateDbus g_dbusretrycnt=[0]";
const std::string kUnreached = "I m_MainLaunchPro: bChecking=[0]";
const std::string kReached = "I m_MainLaunchPro: bChecking=[1]";

std::string CountLine(int count)
{
    return "I m_MainLaunchPro: g_dbusretrycnt=[" + std::to_string(count) + "]";
}

// Returns the thread's own lines for passes that end with these counts.
Lines CountedPasses(const std::vector<int>& counts)
{
    Lines lines;
    for (const int count : counts) {
        lines = lines + kUnreached + CountLine(count);
    }
    return lines;
}

// Returns all lines of one pass while the server cannot be started.
Lines WholePass(int count)
{
    return {kEnter,          ErrorLine("check_dbus_connection", NoServerError()),
            kNoIdLine,       kAbsentLine,
            kNoIdLine,       kUnreached,
            CountLine(count)};
}

// The caller's lines up to the decision about the thread.
const Lines kFailedCheck = {kStart, kAbsentLine, kNoIdLine, LaunchLine("s_pre_checking")};

Lines OfOtherThreads()
{
    Lines lines;
    for (const LogLine& line : platform_log::Lines()) {
        if (!line.ofTestThread) {
            lines.push_back(line.Short());
        }
    }
    return lines;
}

class LaunchTest : public BusTest {
protected:
    static void StartAndWaitForEnd()
    {
        EXPECT_FALSE(s_pre_checking());
        g_launch.WaitForEnd();
    }
};

TEST_F(LaunchTest, WithTheServerUpTheCheckSucceedsAndNoThreadStarts)
{
    StartAndConnect();

    EXPECT_TRUE(s_pre_checking());

    ExpectLog({kStart, kEnter});
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
    EXPECT_EQ(g_launch.Started(), 0);
    EXPECT_EQ(m_launchthreadId, 0U);
}

TEST_F(LaunchTest, OnADisabledDeviceTheCheckFailsAndNoThreadStarts)
{
    feature::Set(false);

    EXPECT_FALSE(s_pre_checking());

    ExpectLog(DisabledLines("s_pre_checking"));
    EXPECT_THAT(trace_->Messages(), IsEmpty());
    EXPECT_EQ(g_launch.Started(), 0);
    EXPECT_EQ(m_launchthreadId, 0U);
}

TEST_F(LaunchTest, WithoutAServerTheCheckFailsAfterOneAttemptAndStartsTheThread)
{
    ReadFeature();
    StopAtLine stop(kThreadEnter);

    EXPECT_FALSE(s_pre_checking());

    ExpectLog(kFailedCheck + kBeforeCreate + kCreated);
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery));
    EXPECT_NE(m_launchthreadId, 0U);
    stop.WaitUntilReached();
    stop.Release();
    g_launch.WaitForEnd();
}

TEST_F(LaunchTest, TheThreadMakesSixPassesWhenTheServerNeverComes)
{
    StartAndWaitForEnd();

    EXPECT_THAT(
        OfOtherThreads(), ElementsAreArray(
                              Lines{kThreadEnter} + WholePass(1) + WholePass(2) + WholePass(3) + WholePass(4) +
                              WholePass(5) + WholePass(6)));
    Lines sent = {kOwnerQuery};
    for (int pass = 0; pass < 6; ++pass) {
        sent = sent + Lines{IdQuery(), kOwnerQuery};
    }
    EXPECT_THAT(Sent(), ElementsAreArray(sent));
    EXPECT_EQ(m_launchthreadId, 0U);
}

TEST_F(LaunchTest, TheThreadAsksTheBusToStartTheServer)
{
    StartAndWaitForEnd();
    for (const auto& message : SentMessages()) {
        if (message.destination == kServerName) {
            EXPECT_EQ(message.member, "check_dbus_connection");
            EXPECT_EQ(message.flags, G_DBUS_MESSAGE_FLAGS_NONE);
        }
    }
}

TEST_F(LaunchTest, TheThreadsIdIsKnownWhileItRuns)
{
    std::mutex mutex;
    std::vector<bool> isKnown;
    platform_log::OnLine([&](const LogLine& line) {
        if (line.function == "m_MainLaunchPro") {
            const std::lock_guard lock(mutex);
            isKnown.push_back(pthread_equal(m_launchthreadId, pthread_self()) != 0);
        }
    });
    StartAndWaitForEnd();
    platform_log::OnLine(nullptr);
    EXPECT_THAT(isKnown, ::testing::AllOf(::testing::SizeIs(13), ::testing::Each(true)));
    EXPECT_EQ(m_launchthreadId, 0U);
}

TEST_F(LaunchTest, AFailingCallerGivesTheRunningThreadItsFullBudgetAgain)
{
    StopAtLine stop(CountLine(3));
    s_pre_checking();
    stop.WaitUntilReached();
    platform_log::Clear();

    EXPECT_FALSE(s_pre_checking());

    ExpectLog(kFailedCheck + kReset);
    stop.Release();
    g_launch.WaitForEnd();
    EXPECT_THAT(platform_log::OfFunction("m_MainLaunchPro"), ElementsAreArray(CountedPasses({1, 2, 3, 4, 5, 6})));
    EXPECT_EQ(g_launch.Started(), 1);
}

TEST_F(LaunchTest, ASucceedingCallerLeavesTheBudgetAlone)
{
    StopAtLine stop(CountLine(3));
    s_pre_checking();
    stop.WaitUntilReached();
    StartServer();
    EXPECT_TRUE(s_pre_checking());
    CNSGdbus::m_pInstance->GiveProxy();
    KillServer();
    platform_log::Clear();
    stop.Release();
    g_launch.WaitForEnd();
    EXPECT_THAT(platform_log::OfFunction("m_MainLaunchPro"), ElementsAreArray(CountedPasses({4, 5, 6})));
}

TEST_F(LaunchTest, TheNextFailingCallerStartsANewThread)
{
    StartAndWaitForEnd();
    platform_log::Clear();

    EXPECT_FALSE(s_pre_checking());
    g_launch.WaitForEnd(2);

    ExpectLog(kFailedCheck + kBeforeCreate + kCreated);
    EXPECT_THAT(
        platform_log::OfFunction("m_MainLaunchPro"),
        ElementsAreArray(Lines{kThreadEnter} + CountedPasses({1, 2, 3, 4, 5, 6})));
    EXPECT_EQ(g_launch.Started(), 2);
    EXPECT_EQ(m_launchthreadId, 0U);
}

TEST_F(LaunchTest, TheThreadStartsTheServerAndEnds)
{
    MakeServerActivatable();

    StartAndWaitForEnd();

    EXPECT_THAT(platform_log::OfFunction("m_MainLaunchPro"), ElementsAre(kThreadEnter, kReached));
    EXPECT_EQ(m_launchthreadId, 0U);
    EXPECT_EQ(control_.Methods(), Lines(2, "check_dbus_connection"));
    EXPECT_TRUE(s_pre_checking());
    EXPECT_EQ(g_launch.Started(), 1);
}

TEST_F(LaunchTest, TheThreadEndsWhenTheServerComesUpByItself)
{
    StopAtLine stop(CountLine(2));
    s_pre_checking();
    stop.WaitUntilReached();
    StartServer();
    stop.Release();
    g_launch.WaitForEnd();
    EXPECT_THAT(
        platform_log::OfFunction("m_MainLaunchPro"),
        ElementsAreArray(Lines{kThreadEnter} + CountedPasses({1, 2}) + Lines{kReached}));
    EXPECT_EQ(m_launchthreadId, 0U);
}

TEST_F(LaunchTest, APassDoesNotAskAgainOnAConnectionThatIsHeld)
{
    StartAndConnect();

    EXPECT_EQ(m_MainLaunchPro(nullptr), nullptr);

    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
    ExpectLog({kThreadEnter, kEnter, kReached});
}

class ThreadFailureTest : public LaunchTest {
protected:
    void SetUp() override
    {
        platform_log::OnLine([](const LogLine& line) {
            if (line.Short() == kBeforeCreate) {
                g_attributes.areExpected = true;
            }
        });
    }

    static int CreateThread()
    {
        g_attributes.areExpected = true;
        return m_CreateThread();
    }

    // Checks a caller that fails to start the thread, and another that notices that.
    static void ExpectNoThread(const std::string& reason)
    {
        ReadFeature();
        EXPECT_FALSE(s_pre_checking());
        ExpectLog(kFailedCheck + kBeforeCreate + reason);
        EXPECT_EQ(m_launchthreadId, 0U);

        platform_log::Clear();
        EXPECT_EQ(CreateThread(), 0);
        ExpectLog({reason});
        EXPECT_EQ(m_launchthreadId, 0U);
        EXPECT_EQ(g_launch.Started(), 0);

        g_launch.initFailure = g_launch.detachFailure = g_launch.createFailure = 0;
        platform_log::Clear();
        StartAndWaitForEnd();
        ExpectLog(kFailedCheck + kBeforeCreate + kCreated);
    }
};

TEST_F(ThreadFailureTest, NoAttributes)
{
    g_launch.initFailure = ENOMEM;
    ExpectNoThread("I m_CreateThread: [NAM-SEQ3] pthread_attr_init(m_CreateThread) fail");
}

TEST_F(ThreadFailureTest, NotDetachable)
{
    g_launch.detachFailure = EINVAL;
    ExpectNoThread("I m_CreateThread: [NAM-SEQ3] pthread_attr_setdetachstate(m_CreateThread) fail");
    EXPECT_EQ(g_attributes.destroyed, 3);
}

TEST_F(ThreadFailureTest, NoThread)
{
    g_launch.createFailure = EAGAIN;
    ExpectNoThread("I m_CreateThread: [NAM-SEQ2] pthread_create(m_CreateThread) fail iRet=[11]");
    EXPECT_EQ(g_attributes.destroyed, 3);
}

TEST_F(ThreadFailureTest, NoFailure)
{
    EXPECT_EQ(CreateThread(), 1);
    g_launch.WaitForEnd();
    ExpectLog({kCreated});
    EXPECT_EQ(g_launch.Started(), 1);
    EXPECT_EQ(g_attributes.destroyed, 1);
}

} // namespace
