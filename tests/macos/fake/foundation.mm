// foundation.mm - Foundation's classes, for the GNU runtime
//
// An object of CoreFoundation is one of Foundation's: the class of a string is NSString, that of
// an array NSArray.

#include <Foundation/Foundation.h>
#include <cstring>
#include <dirent.h>

#include "tests/macos/fake/object.h"

using namespace zelieml::fake;

extern "C" size_t class_getInstanceSize(Class);

namespace
{

struct pool_state {
    list<id>    objects;
    pool_state* outer;
};

thread_local pool_state* innermost = nullptr;

void destroy_instance(object* ended)
{
    [reinterpret_cast<id>(ended) dealloc];
}

CFStringEncoding encoding_of(NSStringEncoding encoding)
{
    if (encoding != NSUTF8StringEncoding && encoding != NSASCIIStringEncoding) {
        refuse("NSString", "an encoding that the fake does not have");
    }
    return encoding == NSUTF8StringEncoding ? CFStringEncoding{kCFStringEncodingUTF8}
                                            : CFStringEncoding{kCFStringEncodingASCII};
}

id autoreleased(void const* made)
{
    return [static_cast<id>(const_cast<void*>(made)) autorelease];
}

}  // namespace

CFTypeRef CFAutorelease(CFTypeRef object)
{
    checked(object, "CFAutorelease");
    return autoreleased(object);
}

@implementation NSObject

+ (id)alloc
{
    require_first_process("alloc");
    object* const made =
        allocate(kind::instance, class_getInstanceSize(self), destroy_instance, "NSObject");
    made->isa = self;
    return reinterpret_cast<id>(made);
}

- (id)init
{
    return self;
}

- (id)retain
{
    ::retain(self, "retain");
    return self;
}

- (oneway void)release
{
    ::release(self, "release");
}

- (id)autorelease
{
    checked(self, "autorelease");
    [NSAutoreleasePool addObject:self];
    return self;
}

- (void)dealloc
{
}

@end

@implementation NSAutoreleasePool

+ (void)addObject:(id)object
{
    if (innermost == nullptr) {
        refuse("autorelease", "no pool in place");
    }
    innermost->objects.push_back(object);
}

- (id)init
{
    innermost = new (malloc_allocator<pool_state>().allocate(1)) pool_state{{}, innermost};
    state_    = innermost;
    return self;
}

- (id)autorelease
{
    refuse("autorelease", "a pool is not autoreleased");
}

- (void)drain
{
    [self release];
}

- (void)dealloc
{
    auto* const own = static_cast<pool_state*>(state_);
    if (own != innermost) {
        refuse("drain", "another thread's pool, or not the innermost");
    }
    for (std::size_t i = 0; i < own->objects.size(); ++i) {
        [own->objects[i] release];
    }
    innermost = own->outer;
    own->~pool_state();
    std::free(own);
    [super dealloc];
}

@end

@implementation NSString

+ (id)stringWithCString:(char const*)content encoding:(NSStringEncoding)encoding
{
    if (content == nullptr) {
        refuse("stringWithCString", "null");
    }
    string_object* const made =
        may_create() ? make_string(content, std::strlen(content), encoding_of(encoding)) : nullptr;
    return made != nullptr ? autoreleased(made) : nil;
}

- (char const*)cStringUsingEncoding:(NSStringEncoding)encoding
{
    auto* const held = as<string_object>(self, "cStringUsingEncoding");
    text        encoded;
    if (!may_create() || !encode(*held, encoding_of(encoding), encoded)) {
        return nullptr;
    }
    held->copies.push_back(std::move(encoded));
    return held->copies.back().c_str();
}

@end

@implementation NSArray

- (NSUInteger)count
{
    return static_cast<NSUInteger>(CFArrayGetCount(reinterpret_cast<CFArrayRef>(self)));
}

- (id)objectAtIndex:(NSUInteger)index
{
    return static_cast<id>(const_cast<void*>(
        CFArrayGetValueAtIndex(reinterpret_cast<CFArrayRef>(self), static_cast<CFIndex>(index))));
}

@end

@implementation NSError
@end

@implementation NSFileManager

+ (NSFileManager*)defaultManager
{
    require_first_process("defaultManager");
    static NSFileManager* const manager = [] {
        NSFileManager* const made = [[NSFileManager alloc] init];
        make_immortal(reinterpret_cast<object*>(made));
        return made;
    }();
    return manager;
}

// A name that is not UTF-8 does not exist on the system's file systems.
- (NSArray*)contentsOfDirectoryAtPath:(NSString*)path error:(NSError**)error
{
    text directory;
    if (!encode(*as<string_object>(path, "contentsOfDirectoryAtPath"), kCFStringEncodingUTF8,
                directory)) {
        refuse("contentsOfDirectoryAtPath", "a path that is not Unicode");
    }
    DIR* const open = may_create() ? ::opendir(directory.c_str()) : nullptr;
    if (open == nullptr) {
        if (error != nullptr) {
            CFErrorRef made = nullptr;
            fail(&made, 260);
            *error = autoreleased(made);
        }
        return nil;
    }
    CFMutableArrayRef const names = make_array();
    while (dirent const* const entry = ::readdir(open)) {
        string_object* const name =
            make_string(entry->d_name, std::strlen(entry->d_name), kCFStringEncodingUTF8);
        if (name == nullptr) {
            continue;
        }
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
            CFArrayAppendValue(names, name);
        }
        CFRelease(name);
    }
    ::closedir(open);
    return autoreleased(names);
}

@end
