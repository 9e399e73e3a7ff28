// directory.mm - the file manager, and a CFArray of CFStrings that a pool keeps alive
//
// Compiled without automatic reference counting, which the 32-bit runtime lacks. A CFArray is an
// NSArray, so it can be autoreleased.

#include "platform/directory.h"

#import <Foundation/Foundation.h>

#include "platform/macos/cf_owner.h"
#include "platform/macos/first_process.h"

namespace zelieml::platform
{

namespace
{

CFMutableArrayRef as_array(text_array* array)
{
    return reinterpret_cast<CFMutableArrayRef>(array);
}

CFArrayRef as_array(text_array const* array)
{
    return reinterpret_cast<CFArrayRef>(array);
}

}  // namespace

release_pool::release_pool() : pool_(!is_forked() ? [[NSAutoreleasePool alloc] init] : nil) {}

release_pool::~release_pool()
{
    if (!is_forked()) {  // a callback can fork in one of the parent's
        [static_cast<NSAutoreleasePool*>(pool_) drain];
    }
}

bool directory_names(char const* directory, std::vector<std::string>& names)
{
    if (is_forked()) {
        return false;
    }
    release_pool const pool;
    NSString* const    path = [NSString stringWithCString:directory encoding:NSUTF8StringEncoding];
    if (path == nil) {
        return false;
    }
    NSArray* const entries = [[NSFileManager defaultManager] contentsOfDirectoryAtPath:path
                                                                                 error:nullptr];
    if (entries == nil) {
        return false;
    }
    for (NSUInteger i = 0; i < [entries count]; ++i) {
        NSString* const   entry = [entries objectAtIndex:i];
        char const* const name  = [entry cStringUsingEncoding:NSUTF8StringEncoding];
        if (name != nullptr) {
            names.emplace_back(name);
        }
    }
    return true;
}

text_array* text_array_create()
{
    if (is_forked()) {
        return nullptr;
    }
    return reinterpret_cast<text_array*>(
        ::CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
}

bool text_array_append(text_array* array, char const* text)
{
    cf_owner<CFStringRef> const copy = system_text(text);
    if (!copy) {
        return false;
    }
    ::CFArrayAppendValue(as_array(array), copy.get());
    return true;
}

int text_array_count(text_array const* array)
{
    return static_cast<int>(::CFArrayGetCount(as_array(array)));
}

bool text_array_get(text_array const* array, int index, char* buf, std::size_t size)
{
    if (index < 0 || index >= text_array_count(array)) {
        return false;
    }
    return copy_system_text(
        static_cast<CFStringRef>(::CFArrayGetValueAtIndex(as_array(array), index)), buf, size);
}

text_array const* text_array_autorelease(text_array* array)
{
    [reinterpret_cast<NSArray*>(array) autorelease];
    return array;
}

void text_array_release(text_array* array)
{
    ::CFRelease(as_array(array));
}

}  // namespace zelieml::platform
