#include "tools/kivctl/Monitor.h"

#include "tools/TimeOfDay.h"
#include "tools/kivctl/Alarm.h"
#include "tools/kivctl/Bus.h"
#include "tools/kivctl/CallWatch.h"
#include "tools/kivctl/Event.h"
#include "tools/kivctl/KeptLines.h"
#include "tools/kivctl/Values.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace kiv::ctl {
namespace {

constexpr guint kPatienceMs = 1000;

// If a server ends within this time after it came, it is likely to do so again.
constexpr std::chrono::seconds kSoon{5};
// The server is asked for events at once this many times. Then there are pauses, each twice as long as the one before.
constexpr int kPatientTries = 3;
constexpr int kLongestPauseS = 8;

// The monitor for the event callbacks, which get no user data.
Monitor* g_running = nullptr;

// The time of an event in the form of the log and the sandbox's trace, and with the date for scripts.
struct Stamp {
    std::string clock;
    std::string iso;
};

Stamp Now()
{
    const auto now = std::chrono::system_clock::now();
    const std::tm utc = fmt::gmtime(std::chrono::system_clock::to_time_t(now));
    return {TimeOfDay(now), fmt::format("{:%FT%T}.{:03}Z", utc, MillisecondsOfSecond(now))};
}

} // namespace

Monitor::Monitor(MonitorOptions options, const Output& output) : options_(std::move(options)), output_(output)
{
    g_running = this;
}

Monitor::~Monitor()
{
    // After this call, no callback runs.
    CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
    g_running = nullptr;
}

void Monitor::Run(const std::function<void()>& ending)
{
    if (GetWhetherKivDisabled()) {
        Fail(NotSent("SubscribeNamServiceCallback"));
        return;
    }
    SetMissing("the system bus has not answered");
    WatchCalls();
    link::ErrorOwner error;
    bus_ = ConnectToSystemBus(error.Out());
    if (bus_ == nullptr) {
        Fail(Failure("the system bus " + NoBusText(error->message), NoBusAdvice(kDoctorTellsWhy)));
        return;
    }
    StartServerOrWait();
    WatchEvents();
    ending();
    // Unsubscribing would start a server that has gone.
    if (subscribed_ && serverThere_ && g_dbus_connection_is_closed(bus_.get()) == FALSE) {
        unregister_atmos_support_cb(OnAtmos);
        UnsubscribeNamServiceCallback(options_.name.c_str());
    }
}

Result Monitor::Outcome()
{
    const std::scoped_lock lock(mutex_);
    if (failure_) {
        return *failure_;
    }
    if (wasReady_ || shown_ > 0) {
        return {};
    }
    const std::string reason = fmt::format("never ready, no event could come: {}", missing_);
    return {kFailed, reason, {{"ready", false}, {"error", reason}}, kDoctorTellsWhy};
}

void Monitor::StartServerOrWait()
{
    SetMissing("the bus has not started the server");
    link::ErrorOwner error;
    if (StartServer(bus_.get(), error.Out())) {
        return;
    }
    g_dbus_error_strip_remote_error(error.get());
    SetMissing(fmt::format("the server does not run and cannot be started: {}", error->message));
    const std::string text =
        fmt::format("waiting for the server, which does not run and cannot be started: {}", error->message);
    Tell(text, {{"server", false}, {"error", text}});
}

void Monitor::WatchEvents()
{
    // A name watch does not report a lost connection if its name had lost its owner before. A bus daemon that ends in
    // order takes the names away first.
    const gulong closedWatch = g_signal_connect(bus_.get(), "closed", G_CALLBACK(OnBusLost), this);
    const guint serverWatch = g_bus_watch_name_on_connection(
        bus_.get(), kServerName, G_BUS_NAME_WATCHER_FLAGS_NONE, OnServer, OnNoServer, this, nullptr);
    while (!ended_) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_signal_handler_disconnect(bus_.get(), closedWatch);
    g_bus_unwatch_name(serverWatch);
    if (clientWatch_ != 0) {
        g_bus_unwatch_name(clientWatch_);
    }
    for (const guint timer : {patience_, nextTry_}) {
        if (timer != 0) {
            g_source_remove(timer);
        }
    }
}

void Monitor::OnBusLost(GDBusConnection*, gboolean, GError*, gpointer monitor)
{
    static_cast<Monitor*>(monitor)->Fail(Failure("the connection to the system bus is lost", kDoctorTellsWhy));
}

void Monitor::OnServer(GDBusConnection*, const char*, const char*, gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    self->serverThere_ = true;
    self->serverCame_ = Clock::now();
    self->TrySoon();
}

void Monitor::TrySoon()
{
    if (earlyEnds_ <= kPatientTries) {
        Try();
    } else {
        TryLater();
    }
}

void Monitor::TryLater()
{
    if (nextTry_ == 0) {
        const int doublings = std::clamp(earlyEnds_ - kPatientTries - 1, 0, kLongestPauseS);
        const int pause = std::min(1 << doublings, kLongestPauseS);
        nextTry_ = g_timeout_add_seconds(static_cast<guint>(pause), OnNextTry, this);
    }
}

gboolean Monitor::OnNextTry(gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    self->nextTry_ = 0;
    // The first subscription starts a server that does not run. Later, the monitor waits for the server.
    if (self->serverThere_ || !self->subscribed_) {
        self->Try();
    }
    return G_SOURCE_REMOVE;
}

void Monitor::Try()
{
    if (nextTry_ != 0) {
        g_source_remove(std::exchange(nextTry_, 0));
    }
    if (subscribed_) {
        SubscribeAgain();
    } else {
        Subscribe();
    }
}

int Monitor::Ask(const std::function<int()>& request) const
{
    const Alarm alarm(std::chrono::milliseconds(kPatienceMs), [this] {
        if (!ended_) {
            output_.RemarkPending("asking the server for its events", kCallLimitSeconds);
        }
    });
    return request();
}

std::optional<Result> Monitor::AskForEvents() const
{
    const int subscribed = Ask([this] { return SubscribeNamServiceCallback(options_.name.c_str(), OnEvent); });
    // The function returns 1 for an answer of another type, too.
    return subscribed == 1 && !CallFailed() ? std::nullopt
                                            : std::optional(Failed("SubscribeNamServiceCallback", subscribed));
}

void Monitor::Subscribe()
{
    SetMissing("the server has not answered the request for its events");
    if (const auto failed = AskForEvents()) {
        FailUnlessGone(*failed);
        return;
    }
    // The function returns 0 for a failed request, too.
    const int registered = Ask([this] { return register_atmos_support_cb(OnAtmos, this); });
    if (registered != 0 || CallFailed()) {
        FailUnlessGone(Failed("register_atmos_support_cb", registered));
        return;
    }
    subscribed_ = true;
    serverTold_ = true;
    WatchClient();
}

// If the server ended in between, the monitor asks again when it is back.
void Monitor::FailUnlessGone(const Result& failed)
{
    if (IsServerGone()) {
        const auto request = CallsSeen().server;
        const std::string reason = fmt::format(
            "the server ended before it answered {}", request ? request->method : "the request for its events");
        SetMissing(reason);
        if (++earlyEnds_ > 1) {
            TellEnds();
        } else {
            const std::string text = reason + "; it is asked again";
            Tell(text, {{"server", false}, {"error", text}});
        }
        TryLater();
    } else {
        Fail(failed);
    }
}

void Monitor::SubscribeAgain()
{
    // This subscription brings all events of the server. The Atmos callback is still registered in the library.
    if (const auto failed = AskForEvents(); !failed) {
        // The first subscription may have started the server, which was not shown as gone then.
        if (!std::exchange(serverTold_, true)) {
            Tell("the server is back, waiting for its events", {{"server", true}});
        }
    } else if (!IsServerGone()) {
        serverTold_ = true;
        Tell(failed->text, failed->fields);
    }
}

bool Monitor::IsServerGone() const
{
    return OwnerOf(bus_.get(), kServerName).empty();
}

// Waits for the client's bus name. The library's monitor thread serves the client object some time after the
// subscription, and requests the name after that.
void Monitor::WatchClient()
{
    const std::string& id = CNSGdbus::m_pInstance->m_strClientName;
    const ClientNames client(id);
    if (!client.Fit()) {
        Fail(Failure(
            fmt::format("no events can come to a client with the id \"{}\" that the server gave", id),
            kDoctorTellsWhy));
        return;
    }
    // The library serves the first id that fits.
    if (const std::string served = CallsSeen().clientId; served != id && ClientNames(served).Fit()) {
        TellNotReady(OtherIdText(id, served), kKeepTheId);
        return;
    }
    client_ = client.name;
    ExpectClient();
    clientWatch_ = g_bus_watch_name_on_connection(
        bus_.get(), client_.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, OnNameOwned, OnNameNotOwned, this, nullptr);
}

void Monitor::ExpectClient()
{
    SetMissing(NoOwnerText(client_));
    if (patience_ == 0) {
        patience_ = g_timeout_add(kPatienceMs, OnNotReady, this);
    }
}

void Monitor::OnNoServer(GDBusConnection*, const char*, gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    // A server that was never there has been reported already.
    if (std::exchange(self->serverTold_, false)) {
        self->Tell("the server has gone", {{"server", false}});
    }
    if (std::exchange(self->serverThere_, false)) {
        self->CountEnd();
    }
}

void Monitor::CountEnd()
{
    if (Clock::now() - serverCame_ >= kSoon) {
        earlyEnds_ = 0;
        endsTold_ = false;
    } else if (++earlyEnds_ > kPatientTries) {
        TellEnds();
    }
}

void Monitor::TellEnds()
{
    if (!std::exchange(endsTold_, true)) {
        const std::string text = fmt::format(
            "the server ends soon after each start; it is asked for its events again, after pauses of 1 to {} s",
            kLongestPauseS);
        Tell(text, {{"server", false}, {"error", text}});
    }
}

void Monitor::OnNameOwned(GDBusConnection* bus, const char* name, const char*, gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    if (self->patience_ != 0) {
        g_source_remove(std::exchange(self->patience_, 0));
    }
    const unsigned process = ProcessOf(bus, name);
    if (std::cmp_not_equal(process, getpid())) {
        self->TellNotReady(
            fmt::format("the bus name {} is owned by process {}, which gets the events", name, process),
            kDoctorTellsWhy);
        return;
    }
    // The lines of a first attempt do not matter any more. Lines that come from now on are about events.
    DropMootLogLines();
    self->wasReady_ = true;
    self->Tell("ready, waiting for events", {{"ready", true}});
}

void Monitor::OnNameNotOwned(GDBusConnection*, const char*, gpointer monitor)
{
    static_cast<Monitor*>(monitor)->ExpectClient();
}

gboolean Monitor::OnNotReady(gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    self->patience_ = 0;
    self->TellNotReady(
        NoOwnerText(self->client_),
        fmt::format(
            "{}; start monitor again after the policy is mended, because the library asks for the name only once",
            kDoctorTellsWhy));
    return G_SOURCE_REMOVE;
}

void Monitor::TellNotReady(const std::string& reason, const std::string& advice)
{
    SetMissing(reason);
    const std::string text = fmt::format("not ready, events cannot come: {}; {}", reason, advice);
    Tell(text, {{"ready", false}, {"error", text}});
}

void Monitor::OnAtmos(int supported, void* monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    if (!self->ended_) {
        const Stamp now = Now();
        self->output_.Show(fmt::format("{} atmos {}", now.clock, supported), {{"time", now.iso}, {"atmos", supported}});
    }
}

void Monitor::OnEvent(int id, void* data, int length)
{
    Monitor& self = *g_running;
    if (self.ended_) {
        return;
    }
    const Stamp now = Now();
    const EventTexts event =
        DescribeEvent(id, EventData(data, length), length, self.options_.layout, self.options_.raw);
    Json fields = {{"time", now.iso}};
    fields.update(event.fields);
    self.output_.Show(fmt::format("{} {}", now.clock, event.text), fields);
    ++self.shown_;
    if (self.shown_ == self.options_.count) {
        self.End();
    }
}

void Monitor::Fail(Result result)
{
    {
        const std::scoped_lock lock(mutex_);
        failure_ = std::move(result);
    }
    End();
}

void Monitor::SetMissing(const std::string& missing)
{
    const std::scoped_lock lock(mutex_);
    missing_ = missing;
}

void Monitor::Tell(const std::string& text, const Json& object) const
{
    if (!ended_) {
        output_.Notify(text, object);
    }
}

void Monitor::End()
{
    ended_ = true;
    g_main_context_wakeup(nullptr);
}

} // namespace kiv::ctl
