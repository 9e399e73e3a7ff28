// charset.cpp - conversions of CFString

#include "platform/charset.h"

#include <algorithm>
#include <cstring>

#include "platform/macos/cf_owner.h"
#include "platform/macos/first_process.h"

namespace zelieml::platform
{

namespace
{

constexpr std::size_t longest_character = 4;  // bytes of it, in any charset

// Appends the whole piece. Returns false, having appended nothing, when some of it means nothing.
bool append_whole(std::string_view piece, CFStringEncoding encoding, std::string& out)
{
    cf_owner<CFStringRef> const text(
        ::CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const*>(piece.data()),
                                  static_cast<CFIndex>(piece.size()), encoding, FALSE));
    if (!text) {
        return false;
    }
    std::size_t const before = out.size();
    auto const        room   = static_cast<std::size_t>(::CFStringGetLength(text.get())) * 3 + 1;
    out.resize(before + room);
    bool const done = ::CFStringGetCString(text.get(), &out[before], static_cast<CFIndex>(room),
                                           kCFStringEncodingUTF8) != 0;
    out.resize(done ? before + std::strlen(&out[before]) : before);
    return done;
}

// The piece that begins the text: up to the next escape sequence, which says how to read on, or the
// shortest that is a character.
std::size_t append_piece(std::string_view text, bool escapes, CFStringEncoding encoding,
                         std::string& out)
{
    if (escapes) {
        std::size_t const size = std::min(text.find('\x1B', 1), text.size());
        if (!append_whole({text.data(), size}, encoding, out)) {
            out += replacement_character;
        }
        return size;
    }
    for (std::size_t size = 1; size <= std::min(longest_character, text.size()); ++size) {
        if (append_whole({text.data(), size}, encoding, out)) {
            return size;
        }
    }
    out += replacement_character;
    return 1;
}

}  // namespace

bool append_as_utf8(char const* charset, std::string_view bytes, std::string& out)
{
    if (is_forked()) {
        return false;
    }
    cf_owner<CFStringRef> const name(
        ::CFStringCreateWithCString(kCFAllocatorDefault, charset, kCFStringEncodingASCII));
    CFStringEncoding const encoding =
        name ? ::CFStringConvertIANACharSetNameToEncoding(name.get()) : kCFStringEncodingInvalidId;
    if (encoding == kCFStringEncodingInvalidId) {
        return false;
    }
    // The framework converts all of a text or nothing.
    if (!append_whole(bytes, encoding, out)) {
        bool const escapes = bytes.find('\x1B') != std::string_view::npos;
        while (!bytes.empty()) {
            bytes.remove_prefix(append_piece(bytes, escapes, encoding, out));
        }
    }
    return true;
}

}  // namespace zelieml::platform
