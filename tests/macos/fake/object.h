// object.h - what every object of the fake is: counted, checked, and known while it lives
//
// The pointer that users have points at the class, as Objective-C wants it, so that objects of
// CoreFoundation can be sent messages; the bookkeeping stands in front of it. Memory comes from
// malloc, never from operator new, which tests replace.

#ifndef ZELIEML_TESTS_MACOS_FAKE_OBJECT_H
#define ZELIEML_TESTS_MACOS_FAKE_OBJECT_H

#include <CoreFoundation/CoreFoundation.h>
#include <cstddef>
#include <cstdlib>
#include <list>
#include <new>
#include <pthread.h>
#include <string>
#include <utility>
#include <vector>

namespace zelieml::fake
{

// Memory that no test's operator new sees.
template <class T>
struct malloc_allocator {
    using value_type = T;

    malloc_allocator() = default;
    template <class U>
    malloc_allocator(malloc_allocator<U> const& /*other*/)
    {
    }

    T* allocate(std::size_t count)
    {
        void* const room = std::malloc(count * sizeof(T));
        if (room == nullptr) {
            std::abort();
        }
        return static_cast<T*>(room);
    }
    void deallocate(T* room, std::size_t /*count*/) { std::free(room); }

    friend bool operator==(malloc_allocator, malloc_allocator) { return true; }
    friend bool operator!=(malloc_allocator, malloc_allocator) { return false; }
};

template <class T>
using list  = std::vector<T, malloc_allocator<T>>;
using text  = std::basic_string<char, std::char_traits<char>, malloc_allocator<char>>;
using bytes = list<unsigned char>;

// refuse - say what the caller did wrong, and abort
[[noreturn]] void refuse(char const* function, char const* why);

// require_first_process - refuse the call in a forked child of the process that used the frameworks
//
// That is the first process that comes here. Whatever takes an object comes here through checked,
// whatever can fail through may_create, and every other function by itself.
void require_first_process(char const* function);

// start_thread - start a thread that leaves signals to the host
pthread_t start_thread(void* (*body)(void*), void* argument);

// may_create - whether this creation is not the one that has to fail
bool may_create();

enum class kind {
    string,
    number,
    boolean,
    data,
    array,
    dictionary,
    error,
    time_zone,
    run_loop,
    center,
    allocator,
    key,
    transform,
    certificate,
    policy,
    trust,
    tls_context,
    instance  // of an Objective-C class that is nothing else
};

// type_id - the number that CoreFoundation has for a kind
CFTypeID type_id(kind what);

// What the objects of each kind begin with.
struct object {
    void* isa = nullptr;
};

using destroyer = void (*)(object*);

// allocate - room for an object, with one reference
//
// size     bytes of the object, from its class pointer on
// destroy  ends what the object holds; the room is the fake's
// name     of its Objective-C class
object* allocate(kind what, std::size_t size, destroyer destroy, char const* name);

// make_immortal - no more counted, never released
void make_immortal(object* immortal);

template <class T>
void destroy_object(object* ended)
{
    static_cast<T*>(ended)->~T();
}

// make - an object of a type that names its kind and class
template <class T>
T* make()
{
    object* const room = allocate(T::what, sizeof(T), destroy_object<T>, T::name);
    void* const   isa  = room->isa;
    T* const      made = new (room) T();
    made->isa          = isa;
    return made;
}

// checked - a live object of any kind; refuses anything else
object* checked(void const* pointer, char const* function);
kind    kind_of(void const* pointer, char const* function);

// as - a live object of a kind; refuses anything else
template <class T>
T* as(void const* pointer, char const* function)
{
    if (kind_of(pointer, function) != T::what) {
        refuse(function, "an object of another type");
    }
    return static_cast<T*>(checked(pointer, function));
}

void retain(void const* pointer, char const* function);
void release(void const* pointer, char const* function);
long references(void const* pointer, char const* function);

// hold_for_a_while, let_go - a reference that a thread of the frameworks keeps for a while after the
// call; whoever counts objects waits for its end
void hold_for_a_while(void const* pointer, char const* function);
void let_go(void const* pointer, char const* function);

// Things that are counted among the live ones without being objects.
void count_in(char const* name);
void count_out(char const* name);

struct string_object : object {
    static constexpr kind                   what = kind::string;
    static constexpr auto                   name = "NSString";
    list<UInt16>                            units;   // UTF-16
    std::list<text, malloc_allocator<text>> copies;  // handed out as C strings; live as long
};

struct data_object : object {
    static constexpr kind what = kind::data;
    static constexpr auto name = "NSObject";
    bytes                 content;
};

struct number_object : object {
    static constexpr kind what    = kind::number;
    static constexpr auto name    = "NSObject";
    double                value   = 0;
    SInt64                integer = 0;
};

// make_string - a string of a text; null when the text is not one of the encoding
string_object* make_string(char const* begin, std::size_t size, CFStringEncoding encoding);

// encode - the text of a string
//
// Returns false when the encoding does not have all of its characters.
bool encode(string_object const& string, CFStringEncoding encoding, text& out);

// make_data - an object of bytes
data_object* make_data(void const* begin, std::size_t size);

// make_array, make_dictionary - empty ones of objects
CFMutableArrayRef      make_array();
CFMutableDictionaryRef make_dictionary();

// dictionary_contents - keys and values in turns
list<void const*> dictionary_contents(void const* dictionary, char const* function);

// fail - an error for the caller, when it wants one
void fail(CFErrorRef* error, CFIndex code);

}  // namespace zelieml::fake

#endif
