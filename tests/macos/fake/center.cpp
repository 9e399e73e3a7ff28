// center.cpp - the distributed notification center, and the run loop that delivers from it
//
// Every process that observes listens on a stream socket of its own in a folder of the build, which
// stands for a login session: as on a Mac, all tests share one. A poster connects to each and
// writes the notification. A thread of the observing process takes them in at once, so that no
// poster waits for a delivery. The run loop of the main thread calls the observers, and nothing else
// does.
//
// As the real center may, it can know an observer late and deliver twice, see slow_variable. What a
// process posts itself is never too early for its observers.
//
// As in the real center, who is called is settled before the first of them is: an observer that is
// removed meanwhile may be called once more, after its removal has returned.

#include "tests/macos/fake/center.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include "tests/macos/fake/fake.h"
#include "tests/macos/fake/object.h"

namespace zelieml::fake
{

namespace
{

constexpr char folder_path[]   = ZELIEML_FAKE_SESSION;
constexpr char slow_variable[] = "ZELIEML_SLOW_CENTER";  // set: late and twice
constexpr char suffix[]        = ".center";
constexpr auto lateness        = std::chrono::milliseconds(30);
constexpr auto patience        = std::chrono::seconds(5);

using units = list<UInt16>;
using clock = std::chrono::steady_clock;

bool is_slow()
{
    static bool const slow = std::getenv(slow_variable) != nullptr;
    return slow;
}

struct center_object : object {
    static constexpr kind what = kind::center;
    static constexpr auto name = "NSObject";
};

struct run_loop_object : object {
    static constexpr kind what = kind::run_loop;
    static constexpr auto name = "NSObject";
};

struct observer {
    void const*            who;
    CFNotificationCallback proc;
    units                  name;
    units                  object;
    clock::time_point      known_since;  // to the posts of other processes
};

struct notification {
    pid_t             poster = 0;
    clock::time_point arrived;
    units             name;
    units             object;
    bool              has_info = false;
    list<units>       info;  // keys and values in turns

    bool is_for(observer const& one) const
    {
        return one.name == name && one.object == object &&
               (poster == ::getpid() || arrived >= one.known_since);
    }
};

struct center_state {
    std::mutex              guard;
    std::condition_variable changed;
    list<observer>          observers;
    list<notification>      waiting;  // the next one first
    bool      observed   = false;     // it had an observer, so that the run loop has a source
    bool      delivering = false;
    bool      stopped    = false;  // the process ends
    bool      running    = false;  // the run loop
    bool      stop_loop  = false;
    int       socket     = -1;
    pthread_t listening  = {};
    text      file;
};

// Never destroyed: its threads run until the very end.
center_state& the_center()
{
    static center_state* const one =
        new (malloc_allocator<center_state>().allocate(1)) center_state();
    return *one;
}

template <class T>
T* constant_object()
{
    T* const made = make<T>();
    make_immortal(made);
    return made;
}

CFNotificationCenterRef the_center_object()
{
    static auto* const one = constant_object<center_object>();
    return reinterpret_cast<CFNotificationCenterRef>(one);
}

// ---- the folder, and messages

// A descriptor of the folder; -1 when there is none.
int open_folder()
{
    return ::open(folder_path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

sockaddr_un address_in(int folder, char const* file)
{
    sockaddr_un address = {};
    address.sun_family  = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", folder, file);
    return address;
}

void put(bytes& out, units const& string)
{
    auto const        count = static_cast<UInt32>(string.size());
    auto const* const size  = reinterpret_cast<unsigned char const*>(&count);
    auto const* const first = reinterpret_cast<unsigned char const*>(string.data());
    out.insert(out.end(), size, size + sizeof count);
    out.insert(out.end(), first, first + string.size() * sizeof(UInt16));
}

bool take(bytes const& in, std::size_t& at, units& string)
{
    UInt32 count = 0;
    if (in.size() - at < 4) {
        return false;
    }
    std::memcpy(&count, in.data() + at, 4);
    at += 4;
    if ((in.size() - at) / sizeof(UInt16) < count) {
        return false;
    }
    string.resize(count);
    if (count > 0) {
        std::memcpy(string.data(), in.data() + at, count * sizeof(UInt16));
    }
    at += count * sizeof(UInt16);
    return true;
}

bool decode(bytes const& in, notification& out)
{
    std::size_t at = sizeof out.poster + 1;
    if (in.size() < at || !take(in, at, out.name) || !take(in, at, out.object)) {
        return false;
    }
    std::memcpy(&out.poster, in.data(), sizeof out.poster);
    out.has_info = in[sizeof out.poster] != 0;
    while (at < in.size()) {
        units string;
        if (!take(in, at, string)) {
            return false;
        }
        out.info.push_back(string);
    }
    return out.info.size() % 2 == 0;
}

// Writes a message to the process behind a socket file; one that is gone loses its file. A process
// that has been stopped, with its queue full, misses the notification.
void send_to(int folder, char const* file, bytes const& message)
{
    int const fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return;
    }
    sockaddr_un const address = address_in(folder, file);
    if (::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0) {
        timeval const limit = {1, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        ::fcntl(fd, F_SETFL, 0);
        for (std::size_t sent = 0; sent < message.size();) {
            ssize_t const count =
                ::send(fd, message.data() + sent, message.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                break;
            }
            sent += static_cast<std::size_t>(count);
        }
        // Until it has been taken in: tests count this process's descriptors.
        char nothing = 0;
        ::shutdown(fd, SHUT_WR);
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        ::recv(fd, &nothing, 1, 0);
    } else if (errno == ECONNREFUSED) {
        ::unlinkat(folder, file, 0);
    }
    ::close(fd);
}

// ---- taking in

bytes read_all(int fd)
{
    bytes         message;
    unsigned char piece[4096];
    for (;;) {
        ssize_t const count = ::read(fd, piece, sizeof piece);
        if (count <= 0) {
            return message;
        }
        message.insert(message.end(), piece, piece + count);
    }
}

// The thread that takes in what is posted, until its socket is shut down.
void* take_in(void* argument)
{
    int const     listening = static_cast<int>(reinterpret_cast<std::intptr_t>(argument));
    center_state& center    = the_center();
    for (;;) {
        int const fd = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            return nullptr;
        }
        notification taken;
        taken.arrived    = clock::now();
        bool const whole = decode(read_all(fd), taken);
        ::close(fd);
        std::lock_guard<std::mutex> const hold(center.guard);
        if (whole && center.socket == listening) {
            center.waiting.insert(center.waiting.end(), is_slow() ? 2 : 1, taken);
            center.changed.notify_all();
        }
    }
}

void listen_for_posts(center_state& center)
{
    static std::atomic<unsigned> number{0};
    char                         unready[64];
    std::snprintf(unready, sizeof unready, "%d-%u", static_cast<int>(::getpid()), ++number);
    center.file   = text(unready) + suffix;
    center.socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // Another process may remove the folder at any time, as its last one. The file gets its name
    // when it is ready: a poster takes one that nobody listens on for a dead process's.
    bool ready = false;
    for (int i = 0; i < 1000 && !ready; ++i) {
        ::mkdir(folder_path, 0700);
        int const folder = open_folder();
        if (folder >= 0) {
            sockaddr_un const address = address_in(folder, unready);
            ready = ::bind(center.socket, reinterpret_cast<sockaddr const*>(&address),
                           sizeof address) == 0 &&
                    ::listen(center.socket, 4096) == 0 &&
                    ::renameat(folder, unready, folder, center.file.c_str()) == 0;
            ::close(folder);
        }
    }
    if (!ready) {
        refuse("CFNotificationCenterAddObserver", "cannot listen");
    }
    center.listening =
        start_thread(take_in, reinterpret_cast<void*>(static_cast<std::intptr_t>(center.socket)));
}

// The guard is held before and after, but not in between.
void stop_listening(center_state& center, std::unique_lock<std::mutex>& hold)
{
    int const       socket = std::exchange(center.socket, -1);
    pthread_t const thread = center.listening;
    ::unlink((text(folder_path) + "/" + center.file).c_str());
    ::rmdir(folder_path);  // if nobody else listens
    ::shutdown(socket, SHUT_RDWR);
    center.waiting.clear();
    hold.unlock();
    ::pthread_join(thread, nullptr);
    ::close(socket);
    hold.lock();
}

// ---- delivery

CFStringRef string_of(units const& content)
{
    auto* const made = make<string_object>();
    made->units      = content;
    return reinterpret_cast<CFStringRef>(made);
}

void call_observers(notification const& one, list<observer> const& who) noexcept
{
    CFStringRef const      name   = string_of(one.name);
    CFStringRef const      object = string_of(one.object);
    CFMutableDictionaryRef info   = nullptr;
    if (one.has_info) {
        info = make_dictionary();
        for (std::size_t i = 0; i < one.info.size(); i += 2) {
            CFStringRef const key   = string_of(one.info[i]);
            CFStringRef const value = string_of(one.info[i + 1]);
            CFDictionarySetValue(info, key, value);
            CFRelease(key);
            CFRelease(value);
        }
    }
    for (observer const& called : who) {
        called.proc(the_center_object(), const_cast<void*>(called.who), name, object, info);
    }
    CFRelease(name);
    CFRelease(object);
    if (info != nullptr) {
        CFRelease(info);
    }
}

// Delivers the next notification; the guard is held before and after.
void deliver_next(center_state& center, std::unique_lock<std::mutex>& hold)
{
    notification const one = std::move(center.waiting.front());
    center.waiting.erase(center.waiting.begin());
    list<observer> who;
    for (observer const& known : center.observers) {
        if (one.is_for(known)) {
            who.push_back(known);
        }
    }
    center.delivering = true;
    hold.unlock();
    call_observers(one, who);
    hold.lock();
    center.delivering = false;
    center.changed.notify_all();
}

// ---- arguments

center_state& checked_center(CFNotificationCenterRef center, char const* function)
{
    as<center_object>(center, function);
    return the_center();
}

units const& checked_string(void const* string, char const* function)
{
    return as<string_object>(string, function)->units;
}

// A child that lives on must not keep its parent's posters waiting.
void close_in_child()
{
    center_state& center = the_center();
    if (center.socket >= 0) {
        ::close(center.socket);
    }
}

int const the_fork_handler = ::pthread_atfork(nullptr, nullptr, close_in_child);

}  // namespace

bool stop_delivery()
{
    center_state&                center = the_center();
    std::unique_lock<std::mutex> hold(center.guard);
    center.stopped = true;
    if (center.socket >= 0) {
        stop_listening(center, hold);
    }
    center.changed.notify_all();
    center.changed.wait_for(hold, patience, [&] { return !center.delivering; });
    return !center.observers.empty();
}

int undelivered()
{
    center_state&                     center = the_center();
    std::lock_guard<std::mutex> const hold(center.guard);
    return static_cast<int>(center.waiting.size()) + (center.delivering ? 1 : 0);
}

}  // namespace zelieml::fake

using namespace zelieml::fake;

CFTypeID CFNotificationCenterGetTypeID(void)
{
    return type_id(kind::center);
}

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void)
{
    checked_center(the_center_object(), "CFNotificationCenterGetDistributedCenter");
    return the_center_object();
}

void CFNotificationCenterAddObserver(CFNotificationCenterRef ref, void const* who,
                                     CFNotificationCallback proc, CFStringRef name,
                                     void const* object, CFNotificationSuspensionBehavior behaviour)
{
    constexpr char function[] = "CFNotificationCenterAddObserver";
    center_state&  center     = checked_center(ref, function);
    if (proc == nullptr || behaviour < CFNotificationSuspensionBehaviorDrop ||
        behaviour > CFNotificationSuspensionBehaviorDeliverImmediately) {
        refuse(function, "no callback, or no such behaviour");
    }
    clock::time_point const known_since = clock::now() + (is_slow() ? lateness : clock::duration());
    observer const          added       = {who, proc, checked_string(name, function),
                                           checked_string(object, function), known_since};
    std::unique_lock<std::mutex> hold(center.guard);
    if (center.socket < 0) {
        listen_for_posts(center);
    }
    center.observed = true;
    center.observers.push_back(added);
}

void CFNotificationCenterRemoveObserver(CFNotificationCenterRef ref, void const* who,
                                        CFStringRef name, void const* object)
{
    constexpr char               function[] = "CFNotificationCenterRemoveObserver";
    center_state&                center     = checked_center(ref, function);
    units const                  its_name   = checked_string(name, function);
    units const                  its_object = checked_string(object, function);
    std::unique_lock<std::mutex> hold(center.guard);
    list<observer>               kept;
    for (observer const& one : center.observers) {
        if (one.who != who || one.name != its_name || one.object != its_object) {
            kept.push_back(one);
        }
    }
    if (kept.size() + 1 != center.observers.size()) {
        refuse(function, "no such observer, or several");
    }
    center.observers.swap(kept);
    if (center.observers.empty() && center.socket >= 0) {
        stop_listening(center, hold);
    }
}

void CFNotificationCenterRemoveEveryObserver(CFNotificationCenterRef ref, void const* who)
{
    center_state& center = checked_center(ref, "CFNotificationCenterRemoveEveryObserver");
    std::unique_lock<std::mutex> hold(center.guard);
    list<observer>               kept;
    for (observer const& one : center.observers) {
        if (one.who != who) {
            kept.push_back(one);
        }
    }
    center.observers.swap(kept);
    if (center.observers.empty() && center.socket >= 0) {
        stop_listening(center, hold);
    }
}

void CFNotificationCenterPostNotification(CFNotificationCenterRef ref, CFStringRef name,
                                          void const* object, CFDictionaryRef info,
                                          Boolean deliver_immediately)
{
    CFNotificationCenterPostNotificationWithOptions(
        ref, name, object, info,
        deliver_immediately != FALSE ? CFOptionFlags{kCFNotificationDeliverImmediately} : 0);
}

void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef ref, CFStringRef name,
                                                     void const* object, CFDictionaryRef info,
                                                     CFOptionFlags options)
{
    constexpr char function[] = "CFNotificationCenterPostNotification";
    checked_center(ref, function);
    if ((options & kCFNotificationDeliverImmediately) == 0) {
        refuse(function, "an application in the background would not get it");
    }
    pid_t const       poster = ::getpid();
    auto const* const first  = reinterpret_cast<unsigned char const*>(&poster);
    bytes             message(first, first + sizeof poster);
    message.push_back(static_cast<unsigned char>(info != nullptr ? 1 : 0));
    put(message, checked_string(name, function));
    put(message, checked_string(object, function));
    if (info != nullptr) {
        for (void const* const part : dictionary_contents(info, function)) {
            put(message, checked_string(part, function));
        }
    }

    int const folder = open_folder();
    DIR*      open   = folder >= 0 ? ::fdopendir(folder) : nullptr;
    if (open == nullptr) {
        return;
    }
    list<text> files;
    while (dirent const* const entry = ::readdir(open)) {
        std::size_t const length = std::strlen(entry->d_name);
        if (length >= sizeof suffix &&
            std::strcmp(entry->d_name + length + 1 - sizeof suffix, suffix) == 0) {
            files.emplace_back(entry->d_name);
        }
    }
    for (text const& file : files) {
        send_to(folder, file.c_str(), message);
    }
    ::closedir(open);
}

// ------------------------------------------------------------------ run loops

CFStringRef const kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");

namespace
{

run_loop_object* main_loop()
{
    require_first_process("CFRunLoopGetMain");
    static auto* const one = constant_object<run_loop_object>();
    return one;
}

bool on_main_thread()
{
    return ::syscall(SYS_gettid) == ::getpid();
}

}  // namespace

CFRunLoopRef CFRunLoopGetMain(void)
{
    return reinterpret_cast<CFRunLoopRef>(main_loop());
}

// As in the real one, a loop that does not run forgets that it was told to stop.
void CFRunLoopStop(CFRunLoopRef loop)
{
    as<run_loop_object>(loop, "CFRunLoopStop");
    center_state&                     center = checked_center(the_center_object(), "CFRunLoopStop");
    std::lock_guard<std::mutex> const hold(center.guard);
    center.stop_loop = center.running;
    center.changed.notify_all();
}

// The loop of another thread has nothing to wait for, nor has that of the main thread before there
// was an observer.
SInt32 CFRunLoopRunInMode(CFStringRef mode, CFTimeInterval seconds, Boolean return_after_one)
{
    center_state& center = checked_center(the_center_object(), "CFRunLoopRunInMode");
    auto const    until  = std::chrono::steady_clock::now() +
                       std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                           std::chrono::duration<double>(seconds));
    std::unique_lock<std::mutex> hold(center.guard);
    if (CFEqual(mode, kCFRunLoopDefaultMode) == FALSE || !on_main_thread() || !center.observed) {
        return kCFRunLoopRunFinished;
    }
    center.running   = true;
    center.stop_loop = false;
    SInt32 result    = kCFRunLoopRunTimedOut;
    while (center.changed.wait_until(hold, until,
                                     [&] { return center.stop_loop || !center.waiting.empty(); })) {
        if (center.stop_loop) {
            result = kCFRunLoopRunStopped;
            break;
        }
        deliver_next(center, hold);
        if (return_after_one != FALSE) {
            result = kCFRunLoopRunHandledSource;
            break;
        }
        if (seconds <= 0) {
            break;  // the real one has looked at one source, and has no time for more
        }
    }
    center.running = false;
    return result;
}
