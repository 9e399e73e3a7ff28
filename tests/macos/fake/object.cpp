#include "tests/macos/fake/object.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
#include <unistd.h>

#include "tests/macos/fake/center.h"
#include "tests/macos/fake/fake.h"

extern "C" void* objc_getClass(char const* name);

namespace zelieml::fake
{

namespace
{

constexpr std::size_t quarantine_size = 4096;
constexpr auto        patience        = std::chrono::seconds(5);

struct alignas(16) header {
    kind      what;
    bool      immortal;
    long      count;
    destroyer destroy;
};

object* object_of(header* head)
{
    return reinterpret_cast<object*>(head + 1);
}

header* header_of(void const* pointer)
{
    return static_cast<header*>(const_cast<void*>(pointer)) - 1;
}

struct counted_name {
    char const* name;
    long        count;
};

using pointers = std::set<void const*, std::less<void const*>, malloc_allocator<void const*>>;

struct state {
    std::mutex              guard;
    std::condition_variable let_go;
    pointers                live;
    list<counted_name>      counts;
    // Rooms of objects that were released, so that a stale pointer does not find another object.
    header*     quarantine[quarantine_size] = {};
    std::size_t next_in_quarantine          = 0;
    int         held_for_a_while            = 0;
    int         fail_in                     = 0;
    bool        failed                      = false;
    pid_t       process                     = ::getpid();
};

// Never destroyed: the library's own statics may hold objects until the very end.
state& the_state()
{
    static state* const one = new (malloc_allocator<state>().allocate(1)) state();
    return *one;
}

long& count_of(state& all, char const* name)
{
    for (counted_name& entry : all.counts) {
        if (std::strcmp(entry.name, name) == 0) {
            return entry.count;
        }
    }
    all.counts.push_back({name, 0});
    return all.counts.back().count;
}

char const* kind_name(kind what)
{
    static char const* const names[] = {
        "string",    "number",      "boolean",  "data",   "array",       "dictionary",
        "error",     "time zone",   "run loop", "center", "allocator",   "key",
        "transform", "certificate", "policy",   "trust",  "TLS context", "instance"};
    return names[static_cast<int>(what)];
}

// Asks a process that ends for what it has left behind.
struct leak_check {
    leak_check() { the_state(); }
    ~leak_check()
    {
        state& all = the_state();
        if (all.process != ::getpid()) {
            return;
        }
        bool const observed = stop_delivery();
        if (observed || live_objects() == 0) {
            return;
        }
        for (counted_name const& entry : all.counts) {
            if (entry.count != 0) {
                std::fprintf(stderr, "fake: left behind: %ld of %s\n", entry.count, entry.name);
            }
        }
        std::fflush(nullptr);
        ::_exit(leak_exit_code);
    }
} const the_leak_check;

}  // namespace

void refuse(char const* function, char const* why)
{
    std::fprintf(stderr, "fake: %s: %s\n", function, why);
    std::abort();
}

void require_first_process(char const* function)
{
    static std::atomic<pid_t> first{0};
    pid_t const               self = ::getpid();
    pid_t                     seen = 0;
    if (!first.compare_exchange_strong(seen, self) && seen != self) {
        refuse(function, "a forked child may not use it before exec");
    }
}

pthread_t start_thread(void* (*body)(void*), void* argument)
{
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread = {};
    if (::pthread_create(&thread, nullptr, body, argument) != 0) {
        refuse("the frameworks", "no thread");
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

long live_objects()
{
    state&                       all = the_state();
    std::unique_lock<std::mutex> hold(all.guard);
    all.let_go.wait_for(hold, patience, [&] { return all.held_for_a_while == 0; });
    long sum = 0;
    for (counted_name const& entry : all.counts) {
        sum += entry.count;
    }
    return sum;
}

void fail_creation(int nth)
{
    state&                            all = the_state();
    std::lock_guard<std::mutex> const hold(all.guard);
    all.fail_in = nth;
    all.failed  = false;
}

bool creation_failed()
{
    state&                            all = the_state();
    std::lock_guard<std::mutex> const hold(all.guard);
    return all.failed;
}

bool may_create()
{
    require_first_process("a creation");
    state&                            all = the_state();
    std::lock_guard<std::mutex> const hold(all.guard);
    if (all.fail_in == 0 || --all.fail_in != 0) {
        return true;
    }
    all.failed = true;
    return false;
}

CFTypeID type_id(kind what)
{
    require_first_process("a type's number");
    return static_cast<CFTypeID>(what) + 1;
}

object* allocate(kind what, std::size_t size, destroyer destroy, char const* name)
{
    auto* const head = static_cast<header*>(std::calloc(1, sizeof(header) + size));
    if (head == nullptr) {
        std::abort();
    }
    head->what         = what;
    head->count        = 1;
    head->destroy      = destroy;
    object* const made = object_of(head);
    made->isa          = objc_getClass(name);

    state&                            all = the_state();
    std::lock_guard<std::mutex> const hold(all.guard);
    all.live.insert(made);
    ++count_of(all, kind_name(what));
    return made;
}

void make_immortal(object* immortal)
{
    state&                            all  = the_state();
    header* const                     head = header_of(immortal);
    std::lock_guard<std::mutex> const hold(all.guard);
    head->immortal = true;
    --count_of(all, kind_name(head->what));
}

object* checked(void const* pointer, char const* function)
{
    require_first_process(function);
    if (pointer == nullptr) {
        refuse(function, "null");
    }
    state&                            all = the_state();
    std::lock_guard<std::mutex> const hold(all.guard);
    if (all.live.count(pointer) == 0) {
        refuse(function, "no object, or no more");
    }
    return static_cast<object*>(const_cast<void*>(pointer));
}

kind kind_of(void const* pointer, char const* function)
{
    return header_of(checked(pointer, function))->what;
}

void retain(void const* pointer, char const* function)
{
    header* const                     head = header_of(checked(pointer, function));
    std::lock_guard<std::mutex> const hold(the_state().guard);
    ++head->count;
}

void release(void const* pointer, char const* function)
{
    object* const ended = checked(pointer, function);
    header* const head  = header_of(ended);
    state&        all   = the_state();
    {
        std::lock_guard<std::mutex> const hold(all.guard);
        if (head->immortal || --head->count != 0) {
            return;
        }
        all.live.erase(ended);
        --count_of(all, kind_name(head->what));
    }
    head->destroy(ended);
    std::lock_guard<std::mutex> const hold(all.guard);
    std::free(std::exchange(all.quarantine[all.next_in_quarantine], head));
    all.next_in_quarantine = (all.next_in_quarantine + 1) % quarantine_size;
}

void hold_for_a_while(void const* pointer, char const* function)
{
    retain(pointer, function);
    state&                            all = the_state();
    std::lock_guard<std::mutex> const hold(all.guard);
    ++all.held_for_a_while;
}

void let_go(void const* pointer, char const* function)
{
    release(pointer, function);
    state&                            all = the_state();
    std::lock_guard<std::mutex> const hold(all.guard);
    --all.held_for_a_while;
    all.let_go.notify_all();
}

long references(void const* pointer, char const* function)
{
    header* const                     head = header_of(checked(pointer, function));
    std::lock_guard<std::mutex> const hold(the_state().guard);
    return head->count;
}

void count_in(char const* name)
{
    state&                            all = the_state();
    std::lock_guard<std::mutex> const hold(all.guard);
    ++count_of(all, name);
}

void count_out(char const* name)
{
    state&                            all = the_state();
    std::lock_guard<std::mutex> const hold(all.guard);
    --count_of(all, name);
}

}  // namespace zelieml::fake
