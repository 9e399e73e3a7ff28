// charset.cpp - conversions of the C library
//
// Its list of converters has a lock that it does not release in a forked child. So converters are
// opened and closed under a lock of the library, for which a fork waits.

#include "platform/charset.h"

#include <cerrno>
#include <cstdint>
#include <iconv.h>
#include <new>

#include "platform/zone_lock.h"
#include "support/no_cancellation.h"

namespace zelieml::platform
{

namespace
{

class conversion
{
public:
    explicit conversion(char const* charset)
    {
        zone_lock const no_fork;
        handle_ = ::iconv_open("UTF-8", charset);
    }
    ~conversion()
    {
        if (is_open()) {
            zone_lock const no_fork;
            ::iconv_close(handle_);
        }
    }
    conversion(conversion const&)            = delete;
    conversion& operator=(conversion const&) = delete;

    bool is_open() const { return reinterpret_cast<std::intptr_t>(handle_) != -1; }

    // Converts as much of the text as it can, or with null what was kept of it for last. Returns
    // whether that was all.
    bool go_on(char** text, std::size_t* left, std::string& out)
    {
        char              buffer[256];
        char*             end  = buffer;
        std::size_t       room = sizeof buffer;
        std::size_t const done = ::iconv(handle_, text, left, &end, &room);
        out.append(buffer, sizeof buffer - room);
        return done != static_cast<std::size_t>(-1);
    }

private:
    iconv_t handle_;
};

}  // namespace

bool append_as_utf8(char const* charset, std::string_view bytes, std::string& out)
{
    no_cancellation const shielded;  // tables are read from files
    conversion            opened(charset);
    if (!opened.is_open()) {
        if (errno == ENOMEM) {
            throw std::bad_alloc();
        }
        return false;
    }
    char*       text = const_cast<char*>(bytes.data());  // not written to
    std::size_t left = bytes.size();
    while (left > 0) {
        std::size_t const left_before = left;
        std::size_t const size_before = out.size();
        if (opened.go_on(&text, &left, out)) {
            break;
        }
        // A full buffer is gone on with; anything else is a byte that means nothing.
        if (errno != E2BIG || (left == left_before && out.size() == size_before)) {
            out += replacement_character;
            ++text;
            --left;
        }
    }
    opened.go_on(nullptr, nullptr, out);
    return true;
}

}  // namespace zelieml::platform
