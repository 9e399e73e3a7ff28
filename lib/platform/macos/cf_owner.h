// cf_owner.h - owners of CoreFoundation objects
//
// What a function with "Create" or "Copy" in its name returns is the caller's to release, an error
// that it stores is too; what any other returns stays with its owner.

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

// cf_out - for a parameter through which a function hands an object over
//
//     status = SecItemExport(..., cf_out<CFDataRef>(data));
//
// The object is the owner's when the statement ends.
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

// fits_cf_index - whether a size can be given to the frameworks, which count in signed numbers
inline bool fits_cf_index(std::size_t size)
{
    return size <= static_cast<std::size_t>(std::numeric_limits<CFIndex>::max());
}

// system_text - a text in the system's encoding as one of the system's
//
// Empty when there is no memory, or when the bytes are no text in that encoding.
inline cf_owner<CFStringRef> system_text(char const* text)
{
    return cf_owner<CFStringRef>(
        ::CFStringCreateWithCString(kCFAllocatorDefault, text, ::CFStringGetSystemEncoding()));
}

// copy_system_text - one of the system's texts in the system's encoding
//
// buf   receives the text and its NUL; holds no text on failure
// size  bytes at buf, the NUL included
//
// Returns false when text and NUL do not fit, or when the encoding lacks one of its characters.
inline bool copy_system_text(CFStringRef text, char* buf, std::size_t size)
{
    return size != 0 && fits_cf_index(size) &&
           ::CFStringGetCString(text, buf, static_cast<CFIndex>(size),
                                ::CFStringGetSystemEncoding()) != 0;
}

}  // namespace zelieml::platform

#endif
