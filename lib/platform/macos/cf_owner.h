// cf_owner.h - owners of CoreFoundation objects
//
// The caller releases what a function with "Create" or "Copy" in its name returns, and an error
// that it stores. What other functions return stays with its owner.

#ifndef ZELIEML_PLATFORM_MACOS_CF_OWNER_H
#define ZELIEML_PLATFORM_MACOS_CF_OWNER_H

#include <CoreFoundation/CoreFoundation.h>
#include <cstddef>
#include <limits>
#include <memory>
#include <type_traits>

namespace zelieml::platform
{

struct cf_deleter {
    void operator()(CFTypeRef object) const { ::CFRelease(object); }
};

// An object that is released at the end of its scope. Ref is the framework's name of the type:
// cf_owner<CFStringRef>.
template <class Ref>
using cf_owner = std::unique_ptr<std::remove_pointer_t<Ref>, cf_deleter>;

// cf_out - for a parameter through which a function returns an object
//
//     status = SecItemExport(..., cf_out<CFDataRef>(data));
//
// The owner has the object when the statement ends.
template <class Ref>
class cf_out
{
public:
    explicit cf_out(cf_owner<Ref>& owner) : owner_(owner) {}
    ~cf_out() { owner_.reset(ref_); }
    cf_out(cf_out const&)            = delete;
    cf_out& operator=(cf_out const&) = delete;

    operator Ref*() { return &ref_; }

private:
    cf_owner<Ref>& owner_;
    Ref            ref_ = nullptr;
};

// fits_cf_index - whether a size fits the signed sizes of the frameworks
inline bool fits_cf_index(std::size_t size)
{
    return size <= static_cast<std::size_t>(std::numeric_limits<CFIndex>::max());
}

// system_text - make a CFString of a string in the system's encoding
//
// Empty when there is no memory, or when the string is not valid in that encoding.
inline cf_owner<CFStringRef> system_text(char const* text)
{
    return cf_owner<CFStringRef>(
        ::CFStringCreateWithCString(kCFAllocatorDefault, text, ::CFStringGetSystemEncoding()));
}

// copy_system_text - copy a CFString in the system's encoding
//
// buf   receives the string and its NUL; undefined on failure
// size  bytes at buf, the NUL included
//
// Returns false when the string does not fit with its NUL, or when the encoding lacks one of its
// characters.
inline bool copy_system_text(CFStringRef text, char* buf, std::size_t size)
{
    return size != 0 && fits_cf_index(size) &&
           ::CFStringGetCString(text, buf, static_cast<CFIndex>(size),
                                ::CFStringGetSystemEncoding()) != 0;
}

}  // namespace zelieml::platform

#endif
