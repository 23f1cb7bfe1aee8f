#include <errno.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/CoreFoundation.h"
#include "platform/Owned.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/Notifications/NotificationBus.h"
#include "platform/linux/Notifications/NotificationWatch.h"

// Everything that the centre waits for lies behind one descriptor, an epoll instance, which is one source on GLib's default main context. No thread
// and, once that source is attached, no call into GLib stands between a notification and the sockets: a child of fork has the threads of its parent
// no more, and any lock of GLib may be locked in it for ever. The child gets another instance under the same number, so that the loop source that
// it has inherited serves the child's own connections and leaves the parent's alone.

namespace {

using platform::BusConnection;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Guard = std::unique_lock<std::mutex>;

constexpr const char* kDevicePrefix = "CMDevice";
constexpr const char* kDeviceNotifications[] = {"CMDeviceStateNotification", "CMDeviceProfilesNotification"};

/// How long a caller waits for a bus to take it up, together less than a second; the opening itself goes on after that.
constexpr milliseconds kSessionPatience{700};
constexpr milliseconds kSystemPatience{200};
/// How long a caller waits for a bus to take a notification.
constexpr milliseconds kPostPatience{400};
/// When an opening without an answer is given up.
constexpr milliseconds kOpeningPatience{10000};
/// Between two calls of a bus that takes no more callers.
constexpr milliseconds kBusyPause{20};
/// Between two attempts; each time twice as long.
constexpr milliseconds kFirstDelay{50};
constexpr milliseconds kLongestDelay{30000};

struct Observer {
    const void* identity;
    CFNotificationCallback callback;
    std::optional<std::string> name;    // nothing: any
    std::optional<std::string> object;  // nothing: any
    unsigned long number;

    bool Wants(const std::string& arrivedName, const std::string& arrivedObject) const {
        return (!name || *name == arrivedName) && (!object || *object == arrivedObject);
    }
    /// Device notifications come from a bus alone.
    bool IsOfPreferences() const { return name && !name->starts_with(kDevicePrefix) && (!object || *object == platform::kChangeObject); }
    bool IsOfDevices() const { return !name || name->starts_with(kDevicePrefix); }
};

struct Notification {
    std::string name;
    std::string object;
};

/// What an event of the epoll instance belongs to.
enum class Part : std::uint32_t { kArrived, kTimer, kSession, kDevices, kWatch };

/// A bus that is followed for the life of the process: opened again whenever it was lost.
struct BusLink {
    Part part;
    std::string (*address)();
    const char* rule;
    bool isWanted;
    std::shared_ptr<BusConnection> connection = nullptr;  // null between the attempts; shared with threads that wait for it
    bool waitsToSend = false;                             // the epoll instance tells when it can
    bool mayHaveMissed = false;                           // since it was last up
    bool isServerBusy = false;                            // at the last attempt it was there and took no more callers
    bool isSilent = false;                                // the last one that was there did not answer in its time
    Clock::time_point lastAttempt = {};
    Clock::time_point nextAttempt = {};
    milliseconds delay = kFirstDelay;

    bool IsUp() const { return connection && connection->GetState() == BusConnection::State::kUp; }
    bool IsOpening() const { return connection && connection->GetState() == BusConnection::State::kOpening; }
    Clock::time_point GivenUp() const { return lastAttempt + kOpeningPatience; }
    /// Where no server is there an attempt costs nothing.
    bool MayBeAttempted() const { return (!isServerBusy && !isSilent) || Clock::now() >= nextAttempt; }
};

}  // namespace

/// The one centre. What arrives on any thread is told to the observers on the main run loop.
struct __CFNotificationCenter {
    std::mutex lock;  // guards all that follows; nothing that may wait for another process is done under it
    std::vector<Observer> observers;
    unsigned long lastNumber = 0;
    std::deque<Notification> arrived;
    /// By the application: the file that the observers know of.
    std::map<std::string, platform::PreferenceFileStamp> told;

    BusLink session{Part::kSession, platform::SessionBusAddress, platform::kNotificationRule, true};
    BusLink devices{Part::kDevices, platform::SystemBusAddress, platform::kColourDeviceRule, false};
    /// Stands while the session bus does not.
    std::unique_ptr<platform::PreferenceWatch> watch;

    int poll = -1;   // the epoll instance
    int bell = -1;   // an eventfd, readable while something has arrived
    int timer = -1;  // a timerfd for the next attempt
    bool isOnLoop = false;
};

namespace {

using Centre = __CFNotificationCenter;

/// Never destroyed: the loop may turn while the process ends.
Centre& TheCentre() {
    static Centre* const centre = new Centre;
    return *centre;
}

// ---- what is waited for ----

bool Wait(Centre* centre, int descriptor, Part part, std::uint32_t events = EPOLLIN, int operation = EPOLL_CTL_ADD) {
    epoll_event event = {};
    event.events = events;
    event.data.u32 = static_cast<std::uint32_t>(part);
    return epoll_ctl(centre->poll, operation, descriptor, &event) == 0;
}

/// Before a descriptor is closed: where a child has a copy of it, closing alone would not end the events.
void EndWait(Centre* centre, int descriptor) {
    epoll_ctl(centre->poll, EPOLL_CTL_DEL, descriptor, nullptr);
}

bool MakeBellAndTimer(Centre* centre) {
    centre->bell = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    centre->timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    return centre->bell >= 0 && centre->timer >= 0 && Wait(centre, centre->bell, Part::kArrived) && Wait(centre, centre->timer, Part::kTimer);
}

bool MakeDescriptors(Centre* centre) {
    if (centre->poll >= 0) return true;
    centre->poll = epoll_create1(EPOLL_CLOEXEC);
    if (centre->poll >= 0 && MakeBellAndTimer(centre)) return true;
    for (int* const descriptor : {&centre->poll, &centre->bell, &centre->timer}) {
        if (*descriptor >= 0) close(*descriptor);
        *descriptor = -1;
    }
    return false;
}

void Ring(int bell) {
    const std::uint64_t one = 1;
    while (write(bell, &one, sizeof one) < 0 && errno == EINTR) {
    }
}

/// Takes an eventfd or timerfd back to its rest.
void Silence(int descriptor) {
    std::uint64_t count;
    while (read(descriptor, &count, sizeof count) < 0 && errno == EINTR) {
    }
}

void Arrived(Centre* centre, const std::string& name, const std::string& object) {
    centre->arrived.push_back({name, object});
    Ring(centre->bell);
}

/// Tells those changes that nobody announced to this process while it could not hear.
void TellMissedChanges(Centre* centre) {
    for (auto& [application, stamp] : centre->told) {
        const platform::PreferenceFileStamp now = platform::StampOfPreferenceFile(application);
        if (!now.exists || now == stamp) continue;
        stamp = now;
        Arrived(centre, application, platform::kChangeObject);
    }
}

void StartWatch(Centre* centre) {
    std::unique_ptr<platform::PreferenceWatch> watch = platform::PreferenceWatch::Make();
    if (!watch || !Wait(centre, watch->Descriptor(), Part::kWatch)) return;
    centre->watch = std::move(watch);
    for (const auto& [application, stamp] : centre->told) centre->watch->Follow(application);
    TellMissedChanges(centre);
}

/// What changes from now on is told to its observers.
void FollowPreferences(Centre* centre, const std::string& application) {
    const auto isFollowing = [&](const Observer& observer) { return observer.IsOfPreferences() && *observer.name == application; };
    if (std::any_of(centre->observers.begin(), centre->observers.end(), isFollowing)) return;
    if (centre->watch) centre->watch->Follow(application);
    centre->told[application] = platform::StampOfPreferenceFile(application);
}

void ReadWatch(Centre* centre) {
    if (!centre->watch) return;
    const platform::PreferenceWatch::Seen seen = centre->watch->Read();
    for (const std::string& application : seen.changed) {
        centre->told[application] = platform::StampOfPreferenceFile(application);
        Arrived(centre, application, platform::kChangeObject);
    }
    if (seen.isRenewed) TellMissedChanges(centre);
}

void EndWatch(Centre* centre) {
    if (!centre->watch) return;
    EndWait(centre, centre->watch->Descriptor());
    centre->watch.reset();
}

// ---- the buses ----

void LeaveAloneForNow(BusLink* link) {
    link->nextAttempt = Clock::now() + link->delay;
    link->delay = std::min(2 * link->delay, kLongestDelay);
}

void Attempt(Centre* centre, BusLink* link) {
    auto connection = std::make_shared<BusConnection>(link->address(), link->rule);
    link->lastAttempt = Clock::now();
    link->isServerBusy = connection->IsServerBusy();
    if (connection->GetState() == BusConnection::State::kLost || !Wait(centre, connection->Descriptor(), link->part)) return;
    link->connection = std::move(connection);
    link->waitsToSend = false;
}

void Lose(Centre* centre, BusLink* link) {
    EndWait(centre, link->connection->Descriptor());
    link->connection.reset();
    link->mayHaveMissed = true;
    LeaveAloneForNow(link);
    if (link == &centre->session && !centre->watch) StartWatch(centre);
}

void GiveUpWhenLate(Centre* centre, BusLink* link) {
    if (!link->IsOpening() || Clock::now() < link->GivenUp()) return;
    link->isSilent = true;
    Lose(centre, link);
}

void Opened(Centre* centre, BusLink* link) {
    link->delay = kFirstDelay;
    link->isSilent = false;
    const bool mayHaveMissed = std::exchange(link->mayHaveMissed, false);
    if (link == &centre->session) {
        EndWatch(centre);
        TellMissedChanges(centre);
    } else if (mayHaveMissed) {
        for (const char* const notification : kDeviceNotifications) Arrived(centre, notification, "");
    }
}

/// Does what can be done on a connection without waiting.
void Advance(Centre* centre, BusLink* link) {
    if (!link->connection) return;
    const bool wasOpening = link->IsOpening();
    std::vector<platform::BusMessage> signals;
    link->connection->Advance(&signals);
    if (wasOpening && link->IsUp()) Opened(centre, link);
    for (const platform::BusMessage& signal : signals) {
        std::string name, object;
        if (link == &centre->devices) {
            if (const char* const notification = platform::ColourDeviceNotification(signal)) Arrived(centre, notification, "");
        } else if (platform::ReadNotificationSignal(signal, &name, &object)) {
            Arrived(centre, name, object);
        }
    }
    if (link->connection->GetState() == BusConnection::State::kLost) {
        Lose(centre, link);
        return;
    }
    const bool waitsToSend = link->connection->HasUnsent();
    if (waitsToSend == link->waitsToSend) return;
    link->waitsToSend = waitsToSend;
    Wait(centre, link->connection->Descriptor(), link->part, waitsToSend ? EPOLLIN | EPOLLOUT : EPOLLIN, EPOLL_CTL_MOD);
}

/// Waits, without the lock, until something happens on the connection, if there is one, and then does what can be done.
void WaitFor(Centre* centre, BusLink* link, Guard* guard, short events, Clock::time_point end) {
    const std::shared_ptr<BusConnection> connection = link->connection;
    pollfd descriptor = {connection ? connection->Descriptor() : -1, events, 0};
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now()).count();
    guard->unlock();
    poll(&descriptor, 1, static_cast<int>(std::max(left, decltype(left){0})));
    guard->lock();
    if (connection && link->connection == connection) Advance(centre, link);
}

/// Waits until a link is up, or cannot be for now, until so long after the attempt, which is made if there is none yet. Where it takes longer the
/// opening goes on by itself.
void Open(Centre* centre, BusLink* link, Guard* guard, milliseconds patience) {
    GiveUpWhenLate(centre, link);
    if (!link->connection) {
        if (!link->MayBeAttempted()) return;
        Attempt(centre, link);
    }
    const Clock::time_point end = link->lastAttempt + patience;
    while (!link->IsUp() && (link->connection || link->isServerBusy) && Clock::now() < end) {
        WaitFor(centre, link, guard, POLLIN, link->connection ? end : std::min(end, Clock::now() + kBusyPause));
        if (!link->connection && link->isServerBusy) Attempt(centre, link);
    }
    if (!link->IsUp()) link->mayHaveMissed = true;
    if (!link->connection && link->nextAttempt <= Clock::now()) LeaveAloneForNow(link);
}

/// Attempts whatever is due, without waiting.
void RunDue(Centre* centre) {
    for (BusLink* const link : {&centre->session, &centre->devices}) {
        GiveUpWhenLate(centre, link);
        if (!link->isWanted || link->connection || Clock::now() < link->nextAttempt) continue;
        Attempt(centre, link);
        if (!link->connection) LeaveAloneForNow(link);
    }
    if (!centre->session.IsUp() && !centre->watch && !centre->observers.empty()) StartWatch(centre);
}

void SetTimer(Centre* centre) {
    const bool isDeaf = !centre->session.connection && !centre->watch && !centre->observers.empty();
    Clock::time_point next = Clock::time_point::max();
    for (const BusLink* const link : {&centre->session, &centre->devices}) {
        if (link->IsOpening()) next = std::min(next, link->GivenUp());
        const bool hasReason = !link->address().empty() || (link == &centre->session && isDeaf);
        if (link->isWanted && !link->connection && hasReason) next = std::min(next, link->nextAttempt);
    }
    itimerspec time = {};
    if (next != Clock::time_point::max()) {
        // Zero would stop the timer; a time that is past lets it go off.
        const auto nanoseconds = std::max<std::int64_t>(std::chrono::nanoseconds(next.time_since_epoch()).count(), 1);
        time.it_value = {nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
    }
    timerfd_settime(centre->timer, TFD_TIMER_ABSTIME, &time, nullptr);
}

/// A bus where there is one, else the watched preference file; never both. False when there is neither.
bool HasCarrier(Centre* centre, Guard* guard) {
    if (!MakeDescriptors(centre)) return false;
    if (centre->session.IsUp() || centre->watch) return true;
    Open(centre, &centre->session, guard, kSessionPatience);
    if (!centre->session.IsUp() && !centre->watch) StartWatch(centre);
    SetTimer(centre);
    return centre->session.IsUp() || centre->watch;
}

// ---- posting ----

/// False when the bus is not there, or was lost by this.
bool SendOnBus(Centre* centre, Guard* guard, const std::string& name, const std::string& object) {
    BusLink& link = centre->session;
    if (!link.IsUp()) return false;
    const std::shared_ptr<BusConnection> connection = link.connection;
    connection->Send(platform::NotificationSignal(name, object));
    const Clock::time_point end = Clock::now() + kPostPatience;
    while (link.connection == connection && link.IsUp() && connection->HasUnsent() && Clock::now() < end) {
        WaitFor(centre, &link, guard, POLLOUT, end);
    }
    if (link.connection == connection && connection->HasUnsent()) {
        link.isSilent = link.IsUp();
        Lose(centre, &link);
    }
    return link.connection == connection;
}

void Post(Centre* centre, const std::string& name, const std::string& object) {
    Guard guard(centre->lock);
    if (!HasCarrier(centre, &guard)) return;
    const bool isOfPreferences = object == platform::kChangeObject;
    // What stands in the file now is told by this.
    const auto noteTold = [&] {
        if (isOfPreferences && centre->told.contains(name)) centre->told[name] = platform::StampOfPreferenceFile(name);
    };
    noteTold();
    // It may have come back since the last look, and others may be listening there already.
    if (!centre->session.IsUp()) Open(centre, &centre->session, &guard, kPostPatience);
    const bool isWatched = centre->watch && centre->watch->Follows(name);
    guard.unlock();
    const bool isAnnounced = isOfPreferences && platform::TouchPreferenceFile(name);
    guard.lock();
    noteTold();
    bool isSent = SendOnBus(centre, &guard, name, object);
    if (!isSent) {
        // Lost only now: the same once more.
        Open(centre, &centre->session, &guard, kPostPatience);
        isSent = SendOnBus(centre, &guard, name, object);
    }
    SetTimer(centre);
    // What neither the bus brings back nor the watch has seen this process's own observers still hear.
    if (!isSent && !(isAnnounced && isWatched)) Arrived(centre, name, object);
}

// ---- the main run loop ----

void HandleEvents(Centre* centre) {
    epoll_event events[8];
    const int count = epoll_wait(centre->poll, events, std::size(events), 0);
    for (int i = 0; i < count; ++i) {
        switch (static_cast<Part>(events[i].data.u32)) {
            case Part::kArrived:
                break;
            case Part::kTimer:
                Silence(centre->timer);
                break;
            case Part::kSession:
                Advance(centre, &centre->session);
                break;
            case Part::kDevices:
                Advance(centre, &centre->devices);
                break;
            case Part::kWatch:
                ReadWatch(centre);
                break;
        }
    }
    RunDue(centre);
    SetTimer(centre);
}

bool IsStillThere(Centre* centre, unsigned long number) {
    const Guard guard(centre->lock);
    return std::any_of(centre->observers.begin(), centre->observers.end(), [number](const Observer& observer) { return observer.number == number; });
}

/// Tells the first notification that has arrived. False when there is none.
bool TellNext(Centre* centre) {
    Notification notification;
    std::vector<Observer> wanting;
    {
        const Guard guard(centre->lock);
        if (centre->arrived.empty()) return false;
        notification = std::move(centre->arrived.front());
        centre->arrived.pop_front();
        if (centre->arrived.empty()) Silence(centre->bell);
        const auto told = centre->told.find(notification.name);
        if (told != centre->told.end() && notification.object == platform::kChangeObject) {
            told->second = platform::StampOfPreferenceFile(notification.name);
        }
        for (const Observer& observer : centre->observers) {
            if (observer.Wants(notification.name, notification.object)) wanting.push_back(observer);
        }
    }
    const Owned<CFStringRef> name(platform::CreateStringFromUTF8(notification.name)), object(platform::CreateStringFromUTF8(notification.object));
    const Owned<CFDictionaryRef> userInfo(
        CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    if (!name || !object || !userInfo) return true;
    for (const Observer& observer : wanting) {
        // One observer's work may remove another.
        if (!IsStillThere(centre, observer.number)) continue;
        observer.callback(centre, const_cast<void*>(observer.identity), name.Get(), object.Get(), userInfo.Get());
    }
    return true;
}

/// Tells all that has arrived by now, so that what it signals comes round once for all of it. Nothing more is taken in before: a flood waits on the
/// sender's side.
void TakeTurn(Centre* centre) {
    std::size_t count = 0;
    {
        const Guard guard(centre->lock);
        if (centre->arrived.empty()) HandleEvents(centre);
        count = centre->arrived.size();
    }
    while (count > 0 && TellNext(centre)) --count;
}

gboolean Turn(gint, GIOCondition, gpointer) {
    platform::NullIfRaised([] {
        TakeTurn(&TheCentre());
        return true;
    });
    return G_SOURCE_CONTINUE;
}

void PutOnLoop(Centre* centre) {
    if (std::exchange(centre->isOnLoop, true)) return;
    GSource* const source = g_unix_fd_source_new(centre->poll, G_IO_IN);
    g_source_set_name(source, "Orlo ColourMatching notifications");
    g_source_set_callback(source, G_SOURCE_FUNC(Turn), nullptr, nullptr);
    // An observer may run a loop of its own, for a dialogue say, in which the others go on hearing.
    g_source_set_can_recurse(source, TRUE);
    g_source_attach(source, nullptr);
    g_source_unref(source);
}

// ---- fork ----

void BeforeFork() {
    TheCentre().lock.lock();
}

void InTheParent() {
    TheCentre().lock.unlock();
}

/// The sockets, the watch and what stands in them stay the parent's. The child opens its own when it uses the centre or turns the main run loop.
void LeaveToTheParent(Centre* centre) {
    for (BusLink* const link : {&centre->session, &centre->devices}) {
        if (link->connection) link->connection->Close();
        link->connection.reset();
        link->mayHaveMissed = true;
        link->isServerBusy = link->isSilent = false;
        link->nextAttempt = {};
        link->delay = kFirstDelay;
    }
    if (centre->watch) centre->watch->Close();
    centre->watch.reset();
    if (centre->poll < 0) return;
    close(centre->bell);
    close(centre->timer);
    const int fresh = epoll_create1(EPOLL_CLOEXEC);
    dup3(fresh, centre->poll, O_CLOEXEC);
    close(fresh);
    MakeBellAndTimer(centre);
    if (!centre->arrived.empty()) Ring(centre->bell);
    SetTimer(centre);
}

void InTheChild() {
    Centre& centre = TheCentre();
    platform::NullIfRaised([&centre] {
        LeaveToTheParent(&centre);
        return true;
    });
    centre.lock.unlock();
}

/// The centre is made here too, as a child could find it half made by another thread.
[[maybe_unused]] const int sFollowsForks = (TheCentre(), pthread_atfork(BeforeFork, InTheParent, InTheChild));

}  // namespace

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void) {
    return platform::NullIfRaised([]() -> CFNotificationCenterRef {
        Centre& centre = TheCentre();
        Guard guard(centre.lock);
        // Those who are registered can still be removed when the last carrier is gone.
        return HasCarrier(&centre, &guard) || !centre.observers.empty() ? &centre : nullptr;
    });
}

void CFNotificationCenterAddObserver(CFNotificationCenterRef centre, const void* identity, CFNotificationCallback callback, CFStringRef name,
                                     const void* object, CFNotificationSuspensionBehavior) {
    platform::NullIfRaised([&] {
        Observer observer = {identity, callback, platform::UTF8FromString(name), platform::UTF8FromString(static_cast<CFStringRef>(object)), 0};
        Guard guard(centre->lock);
        HasCarrier(centre, &guard);
        if (!MakeDescriptors(centre)) return false;
        if (observer.IsOfPreferences()) FollowPreferences(centre, *observer.name);
        observer.number = ++centre->lastNumber;
        centre->observers.push_back(observer);
        PutOnLoop(centre);
        if (observer.IsOfDevices() && !std::exchange(centre->devices.isWanted, true)) Open(centre, &centre->devices, &guard, kSystemPatience);
        SetTimer(centre);
        return true;
    });
}

void CFNotificationCenterRemoveEveryObserver(CFNotificationCenterRef centre, const void* identity) {
    const Guard guard(centre->lock);
    std::erase_if(centre->observers, [identity](const Observer& observer) { return observer.identity == identity; });
}

void CFNotificationCenterPostNotification(CFNotificationCenterRef centre, CFStringRef name, const void* object, CFDictionaryRef, Boolean) {
    platform::NullIfRaised([&] {
        const std::optional<std::string> postedName = platform::UTF8FromString(name);
        if (postedName) Post(centre, *postedName, platform::UTF8FromString(static_cast<CFStringRef>(object)).value_or(""));
        return postedName.has_value();
    });
}
