// values.cpp - CoreFoundation's values: strings, data, numbers, arrays, dictionaries,
// errors, time zones

#include <cmath>
#include <cstring>
#include <ctime>
#include <iconv.h>
#include <mutex>
#include <strings.h>

#include "tests/macos/fake/fake.h"
#include "tests/macos/fake/object.h"

namespace zelieml::fake
{

namespace
{

// ---- texts

// The upper half of Mac OS Roman (Unicode's ROMAN.TXT): every byte is a character.
UInt16 const mac_roman[] = {
    0x00c4, 0x00c5, 0x00c7, 0x00c9, 0x00d1, 0x00d6, 0x00dc, 0x00e1, 0x00e0, 0x00e2, 0x00e4, 0x00e3,
    0x00e5, 0x00e7, 0x00e9, 0x00e8, 0x00ea, 0x00eb, 0x00ed, 0x00ec, 0x00ee, 0x00ef, 0x00f1, 0x00f3,
    0x00f2, 0x00f4, 0x00f6, 0x00f5, 0x00fa, 0x00f9, 0x00fb, 0x00fc, 0x2020, 0x00b0, 0x00a2, 0x00a3,
    0x00a7, 0x2022, 0x00b6, 0x00df, 0x00ae, 0x00a9, 0x2122, 0x00b4, 0x00a8, 0x2260, 0x00c6, 0x00d8,
    0x221e, 0x00b1, 0x2264, 0x2265, 0x00a5, 0x00b5, 0x2202, 0x2211, 0x220f, 0x03c0, 0x222b, 0x00aa,
    0x00ba, 0x03a9, 0x00e6, 0x00f8, 0x00bf, 0x00a1, 0x00ac, 0x221a, 0x0192, 0x2248, 0x2206, 0x00ab,
    0x00bb, 0x2026, 0x00a0, 0x00c0, 0x00c3, 0x00d5, 0x0152, 0x0153, 0x2013, 0x2014, 0x201c, 0x201d,
    0x2018, 0x2019, 0x00f7, 0x25ca, 0x00ff, 0x0178, 0x2044, 0x20ac, 0x2039, 0x203a, 0xfb01, 0xfb02,
    0x2021, 0x00b7, 0x201a, 0x201e, 0x2030, 0x00c2, 0x00ca, 0x00c1, 0x00cb, 0x00c8, 0x00cd, 0x00ce,
    0x00cf, 0x00cc, 0x00d3, 0x00d4, 0xf8ff, 0x00d2, 0x00da, 0x00db, 0x00d9, 0x0131, 0x02c6, 0x02dc,
    0x00af, 0x02d8, 0x02d9, 0x02da, 0x00b8, 0x02dd, 0x02db, 0x02c7,
};

bool decode_utf8(char const* begin, std::size_t size, list<UInt16>& units)
{
    auto const* const in = reinterpret_cast<unsigned char const*>(begin);
    for (std::size_t i = 0; i < size;) {
        unsigned char const first = in[i++];
        if (first < 0x80) {
            units.push_back(first);
            continue;
        }
        int const more = first >= 0xf0 ? 3 : first >= 0xe0 ? 2 : 1;
        if (first < 0xc2 || first > 0xf4 || size - i < static_cast<std::size_t>(more)) {
            return false;
        }
        UInt32 code = first & (0x3fU >> more);
        for (int k = 0; k < more; ++k) {
            if ((in[i] & 0xc0) != 0x80) {
                return false;
            }
            code = (code << 6) | (in[i++] & 0x3fU);
        }
        static UInt32 const smallest[] = {0, 0x80, 0x800, 0x10000};
        if (code < smallest[more] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000)) {
            return false;
        }
        if (code >= 0x10000) {
            code -= 0x10000;
            units.push_back(static_cast<UInt16>(0xd800 + (code >> 10)));
            code = 0xdc00 + (code & 0x3ff);
        }
        units.push_back(static_cast<UInt16>(code));
    }
    return true;
}

// Encodings that strings are made from only. The C library's converters stand in for the system's.
struct charset {
    CFStringEncoding encoding;
    char const*      name;  // of IANA
};

charset const charsets[] = {
    {0x0201, "ISO-8859-1"},  {0x0202, "ISO-8859-2"}, {0x0500, "WINDOWS-1252"},
    {0x0820, "ISO-2022-JP"}, {0x0920, "EUC-JP"},     {0x0A01, "SHIFT_JIS"},
    {0x0632, "GB18030"},     {0x0940, "EUC-KR"},     {0x0A02, "KOI8-R"},
};

charset const* charset_of(CFStringEncoding encoding)
{
    for (charset const& one : charsets) {
        if (one.encoding == encoding) {
            return &one;
        }
    }
    return nullptr;
}

bool decode_by_iconv(char const* begin, std::size_t size, char const* name, list<UInt16>& units)
{
    iconv_t const converter = ::iconv_open("UTF-16LE", name);
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        refuse("CFStringCreateWithBytes", "an encoding that this machine lacks");
    }
    units.resize(2 * size + 2);  // no character has more units than bytes
    char*             in   = const_cast<char*>(begin);
    char*             out  = reinterpret_cast<char*>(units.data());
    std::size_t       room = units.size() * sizeof(UInt16);
    std::size_t const done = ::iconv(converter, &in, &size, &out, &room);
    ::iconv_close(converter);
    units.resize(units.size() - room / sizeof(UInt16));
    return done != static_cast<std::size_t>(-1);
}

bool decode(char const* begin, std::size_t size, CFStringEncoding encoding, list<UInt16>& units)
{
    if (encoding == kCFStringEncodingUTF8) {
        return decode_utf8(begin, size, units);
    }
    if (charset const* const other = charset_of(encoding)) {
        return decode_by_iconv(begin, size, other->name, units);
    }
    for (std::size_t i = 0; i < size; ++i) {
        auto const byte = static_cast<unsigned char>(begin[i]);
        if (byte >= 0x80 && encoding == kCFStringEncodingASCII) {
            return false;
        }
        units.push_back(byte < 0x80 ? byte : mac_roman[byte - 0x80]);
    }
    return true;
}

void append_utf8(text& out, UInt32 code)
{
    if (code < 0x80) {
        out += static_cast<char>(code);
        return;
    }
    static UInt32 const lead[] = {0, 0xc0, 0xe0, 0xf0};
    int const           more   = code >= 0x10000 ? 3 : code >= 0x800 ? 2 : 1;
    out += static_cast<char>(lead[more] | (code >> (6 * more)));
    for (int k = more - 1; k >= 0; --k) {
        out += static_cast<char>(0x80 | (code >> (6 * k) & 0x3f));
    }
}

void check_encoding(CFStringEncoding encoding, char const* function)
{
    if (encoding != kCFStringEncodingUTF8 && encoding != kCFStringEncodingASCII &&
        encoding != kCFStringEncodingMacRoman) {
        refuse(function, "an encoding that the fake does not have");
    }
}

// The constants that CFSTR made, for ever.
struct constant {
    char const*    content;
    string_object* string;
};

// ---- containers

struct array_object : object {
    static constexpr kind what = kind::array;
    static constexpr auto name = "NSArray";

    ~array_object()
    {
        for (void const* const value : values) {
            if (callbacks.release != nullptr) {
                callbacks.release(nullptr, value);
            }
        }
    }

    CFArrayCallBacks  callbacks = {};
    list<void const*> values;
};

struct entry {
    void const* key;
    void const* value;
};

struct dictionary_object : object {
    static constexpr kind what = kind::dictionary;
    static constexpr auto name = "NSObject";

    ~dictionary_object()
    {
        for (entry const& one : entries) {
            if (of_keys.release != nullptr) {
                of_keys.release(nullptr, one.key);
            }
            if (of_values.release != nullptr) {
                of_values.release(nullptr, one.value);
            }
        }
    }

    entry const* find(void const* key) const
    {
        for (entry const& one : entries) {
            if (one.key == key || (of_keys.equal != nullptr && of_keys.equal(one.key, key) != 0)) {
                return &one;
            }
        }
        return nullptr;
    }

    void add(void const* key, void const* value)
    {
        entries.push_back({of_keys.retain != nullptr ? of_keys.retain(nullptr, key) : key,
                           of_values.retain != nullptr ? of_values.retain(nullptr, value) : value});
    }

    CFDictionaryKeyCallBacks   of_keys   = {};
    CFDictionaryValueCallBacks of_values = {};
    list<entry>                entries;
};

void const* retain_value(CFAllocatorRef /*allocator*/, void const* value)
{
    return CFRetain(value);
}

void release_value(CFAllocatorRef /*allocator*/, void const* value)
{
    CFRelease(value);
}

void const* copy_key(CFAllocatorRef /*allocator*/, void const* value)
{
    return CFStringCreateCopy(nullptr, static_cast<CFStringRef>(value));
}

// ---- the rest

struct boolean_object : object {
    static constexpr kind what = kind::boolean;
    static constexpr auto name = "NSObject";
};

struct error_object : object {
    static constexpr kind what = kind::error;
    static constexpr auto name = "NSError";
    CFIndex               code = 0;
};

struct zone_object : object {
    static constexpr kind what = kind::time_zone;
    static constexpr auto name = "NSObject";
};

struct allocator_object : object {
    static constexpr kind what = kind::allocator;
    static constexpr auto name = "NSObject";
};

template <class T>
T* make_constant()
{
    T* const constant = make<T>();
    make_immortal(constant);
    return constant;
}

struct zone_setting {
    std::mutex guard;
    bool       set     = false;
    double     seconds = 0;
};

zone_setting& the_zone()
{
    static zone_setting setting;
    return setting;
}

constexpr double seconds_to_2001 = 978307200.0;  // CoreFoundation's time begins there

}  // namespace

string_object* make_string(char const* begin, std::size_t size, CFStringEncoding encoding)
{
    list<UInt16> units;
    if (!decode(begin, size, encoding, units)) {
        return nullptr;
    }
    auto* const made = make<string_object>();
    made->units.swap(units);
    return made;
}

bool encode(string_object const& string, CFStringEncoding encoding, text& out)
{
    for (std::size_t i = 0; i < string.units.size(); ++i) {
        UInt16 const unit = string.units[i];
        if (unit < 0x80) {
            out += static_cast<char>(unit);
        } else if (encoding == kCFStringEncodingUTF8) {
            UInt32 code = unit;
            if (unit >= 0xd800 && unit < 0xdc00) {
                code = 0x10000U + ((unit & 0x3ffU) << 10) + (string.units[++i] & 0x3ffU);
            }
            append_utf8(out, code);
        } else {
            UInt16 const* const end = mac_roman + 128;
            UInt16 const*       at  = mac_roman;
            while (at != end && *at != unit) {
                ++at;
            }
            if (at == end || encoding == kCFStringEncodingASCII) {
                return false;
            }
            out += static_cast<char>(0x80 + (at - mac_roman));
        }
    }
    return true;
}

data_object* make_data(void const* begin, std::size_t size)
{
    auto* const       made  = make<data_object>();
    auto const* const first = static_cast<unsigned char const*>(begin);
    made->content.assign(first, first + size);
    return made;
}

CFMutableArrayRef make_array()
{
    auto* const made = make<array_object>();
    made->callbacks  = kCFTypeArrayCallBacks;
    return reinterpret_cast<CFMutableArrayRef>(made);
}

CFMutableDictionaryRef make_dictionary()
{
    auto* const made = make<dictionary_object>();
    made->of_keys    = kCFTypeDictionaryKeyCallBacks;
    made->of_values  = kCFTypeDictionaryValueCallBacks;
    return reinterpret_cast<CFMutableDictionaryRef>(made);
}

list<void const*> dictionary_contents(void const* dictionary, char const* function)
{
    list<void const*> contents;
    for (entry const& one : as<dictionary_object>(dictionary, function)->entries) {
        contents.push_back(one.key);
        contents.push_back(one.value);
    }
    return contents;
}

void fail(CFErrorRef* error, CFIndex code)
{
    if (error != nullptr) {
        auto* const made = make<error_object>();
        made->code       = code;
        *error           = reinterpret_cast<CFErrorRef>(made);
    }
}

void set_default_zone(double seconds)
{
    std::lock_guard<std::mutex> const hold(the_zone().guard);
    the_zone().set     = true;
    the_zone().seconds = seconds;
}

void reset_default_zone()
{
    std::lock_guard<std::mutex> const hold(the_zone().guard);
    the_zone().set = false;
}

}  // namespace zelieml::fake

using namespace zelieml::fake;

// ------------------------------------------------------------------ basics

CFAllocatorRef const kCFAllocatorDefault = nullptr;
CFAllocatorRef const kCFAllocatorNull =
    reinterpret_cast<CFAllocatorRef>(make_constant<allocator_object>());
CFBooleanRef const kCFBooleanTrue = reinterpret_cast<CFBooleanRef>(make_constant<boolean_object>());
CFBooleanRef const kCFBooleanFalse =
    reinterpret_cast<CFBooleanRef>(make_constant<boolean_object>());

CFArrayCallBacks const kCFTypeArrayCallBacks = {0, retain_value, release_value, nullptr, CFEqual};
CFDictionaryKeyCallBacks const kCFTypeDictionaryKeyCallBacks = {
    0, retain_value, release_value, nullptr, CFEqual, nullptr};
CFDictionaryKeyCallBacks const kCFCopyStringDictionaryKeyCallBacks = {
    0, copy_key, release_value, nullptr, CFEqual, nullptr};
CFDictionaryValueCallBacks const kCFTypeDictionaryValueCallBacks = {0, retain_value, release_value,
                                                                    nullptr, CFEqual};

CFTypeID CFGetTypeID(CFTypeRef object)
{
    return type_id(kind_of(object, "CFGetTypeID"));
}

CFTypeRef CFRetain(CFTypeRef object)
{
    retain(object, "CFRetain");
    return object;
}

void CFRelease(CFTypeRef object)
{
    release(object, "CFRelease");
}

CFIndex CFGetRetainCount(CFTypeRef object)
{
    return references(object, "CFGetRetainCount");
}

Boolean CFEqual(CFTypeRef one, CFTypeRef other)
{
    kind const what = kind_of(one, "CFEqual");
    if (what != kind_of(other, "CFEqual")) {
        return FALSE;
    }
    if (one == other) {
        return TRUE;
    }
    switch (what) {
    case kind::string:
        return as<string_object>(one, "CFEqual")->units ==
               as<string_object>(other, "CFEqual")->units;
    case kind::data:
        return as<data_object>(one, "CFEqual")->content ==
               as<data_object>(other, "CFEqual")->content;
    case kind::number:
        return as<number_object>(one, "CFEqual")->value ==
               as<number_object>(other, "CFEqual")->value;
    default:
        return FALSE;
    }
}

CFTypeID CFBooleanGetTypeID(void)
{
    return type_id(kind::boolean);
}

Boolean CFBooleanGetValue(CFBooleanRef boolean)
{
    as<boolean_object>(boolean, "CFBooleanGetValue");
    return boolean == kCFBooleanTrue;
}

CFTypeID CFNumberGetTypeID(void)
{
    return type_id(kind::number);
}

CFNumberRef CFNumberCreate(CFAllocatorRef /*allocator*/, CFNumberType type, void const* value)
{
    if (value == nullptr) {
        refuse("CFNumberCreate", "null");
    }
    if (!may_create()) {
        return nullptr;
    }
    SInt64 integer = 0;
    double real    = 0;
    bool   is_real = false;
    switch (type) {
    case kCFNumberSInt32Type: {
        SInt32 const number = *static_cast<SInt32 const*>(value);
        integer             = number;
        break;
    }
    case kCFNumberIntType:
        integer = *static_cast<int const*>(value);
        break;
    case kCFNumberLongType:
        integer = *static_cast<long const*>(value);
        break;
    case kCFNumberSInt64Type:
    case kCFNumberLongLongType:
        integer = *static_cast<SInt64 const*>(value);
        break;
    case kCFNumberFloat64Type:
        real    = *static_cast<double const*>(value);
        is_real = true;
        break;
    default:
        refuse("CFNumberCreate", "a type that the fake does not have");
    }
    auto* const made = make<number_object>();
    made->integer    = is_real ? static_cast<SInt64>(real) : integer;
    made->value      = is_real ? real : static_cast<double>(integer);
    return reinterpret_cast<CFNumberRef>(made);
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value)
{
    auto const* const held = as<number_object>(number, "CFNumberGetValue");
    switch (type) {
    case kCFNumberSInt32Type:
        *static_cast<SInt32*>(value) = static_cast<SInt32>(held->integer);
        return TRUE;
    case kCFNumberIntType:
        *static_cast<int*>(value) = static_cast<int>(held->integer);
        return TRUE;
    case kCFNumberSInt64Type:
        *static_cast<SInt64*>(value) = held->integer;
        return TRUE;
    case kCFNumberFloat64Type:
        *static_cast<double*>(value) = held->value;
        return TRUE;
    default:
        refuse("CFNumberGetValue", "a type that the fake does not have");
    }
}

// ------------------------------------------------------------------ strings

CFTypeID CFStringGetTypeID(void)
{
    return type_id(kind::string);
}

// That of a system in English and most of Western Europe's languages.
CFStringEncoding CFStringGetSystemEncoding(void)
{
    require_first_process("CFStringGetSystemEncoding");
    return kCFStringEncodingMacRoman;
}

CFStringEncoding CFStringConvertIANACharSetNameToEncoding(CFStringRef name)
{
    constexpr char function[] = "CFStringConvertIANACharSetNameToEncoding";
    text           wanted;
    require_first_process(function);
    encode(*as<string_object>(name, function), kCFStringEncodingUTF8, wanted);
    for (charset const& one : charsets) {
        if (::strcasecmp(one.name, wanted.c_str()) == 0) {
            return one.encoding;
        }
    }
    return kCFStringEncodingInvalidId;
}

CFStringRef __CFStringMakeConstantString(char const* content)
{
    static std::mutex  guard;
    static auto* const constants =
        new (malloc_allocator<list<constant>>().allocate(1)) list<constant>();
    std::lock_guard<std::mutex> const hold(guard);
    for (constant const& one : *constants) {
        if (std::strcmp(one.content, content) == 0) {
            return reinterpret_cast<CFStringRef>(one.string);
        }
    }
    string_object* const made = make_string(content, std::strlen(content), kCFStringEncodingUTF8);
    make_immortal(made);
    // The text may be that of a library that is unloaded later.
    constants->push_back({::strdup(content), made});
    return reinterpret_cast<CFStringRef>(made);
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, char const* content,
                                      CFStringEncoding encoding)
{
    if (content == nullptr) {
        refuse("CFStringCreateWithCString", "null");
    }
    return CFStringCreateWithBytes(allocator, reinterpret_cast<UInt8 const*>(content),
                                   static_cast<CFIndex>(std::strlen(content)), encoding, FALSE);
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef /*allocator*/, UInt8 const* begin, CFIndex size,
                                    CFStringEncoding encoding, Boolean /*is_external*/)
{
    if (charset_of(encoding) == nullptr) {
        check_encoding(encoding, "CFStringCreateWithBytes");
    }
    if (size < 0 || (begin == nullptr && size > 0)) {
        refuse("CFStringCreateWithBytes", "no bytes");
    }
    return may_create() ? reinterpret_cast<CFStringRef>(
                              make_string(reinterpret_cast<char const*>(begin),
                                          static_cast<std::size_t>(size), encoding))
                        : nullptr;
}

// A string that cannot change is its own copy.
CFStringRef CFStringCreateCopy(CFAllocatorRef /*allocator*/, CFStringRef string)
{
    as<string_object>(string, "CFStringCreateCopy");
    return static_cast<CFStringRef>(CFRetain(string));
}

CFIndex CFStringGetLength(CFStringRef string)
{
    return static_cast<CFIndex>(as<string_object>(string, "CFStringGetLength")->units.size());
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size,
                           CFStringEncoding encoding)
{
    constexpr char rubbish = '?';
    check_encoding(encoding, "CFStringGetCString");
    text encoded;
    if (!encode(*as<string_object>(string, "CFStringGetCString"), encoding, encoded) ||
        static_cast<CFIndex>(encoded.size()) >= size) {
        std::memset(buffer, rubbish, static_cast<std::size_t>(size > 0 ? size : 0));
        return FALSE;
    }
    std::memcpy(buffer, encoded.c_str(), encoded.size() + 1);
    return TRUE;
}

// The real one may always say so.
char const* CFStringGetCStringPtr(CFStringRef string, CFStringEncoding /*encoding*/)
{
    as<string_object>(string, "CFStringGetCStringPtr");
    return nullptr;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding)
{
    require_first_process("CFStringGetMaximumSizeForEncoding");
    return encoding == kCFStringEncodingUTF8 ? 3 * length : length;
}

CFComparisonResult CFStringCompare(CFStringRef one, CFStringRef other, CFOptionFlags /*options*/)
{
    auto const& left  = as<string_object>(one, "CFStringCompare")->units;
    auto const& right = as<string_object>(other, "CFStringCompare")->units;
    return left == right  ? kCFCompareEqualTo
           : left < right ? kCFCompareLessThan
                          : kCFCompareGreaterThan;
}

// ------------------------------------------------------------------ data

CFTypeID CFDataGetTypeID(void)
{
    return type_id(kind::data);
}

CFDataRef CFDataCreate(CFAllocatorRef /*allocator*/, UInt8 const* begin, CFIndex size)
{
    if (size < 0 || (begin == nullptr && size > 0)) {
        refuse("CFDataCreate", "no bytes");
    }
    return may_create()
               ? reinterpret_cast<CFDataRef>(make_data(begin, static_cast<std::size_t>(size)))
               : nullptr;
}

CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, UInt8 const* begin, CFIndex size,
                                      CFAllocatorRef deallocator)
{
    if (deallocator != kCFAllocatorNull) {
        refuse("CFDataCreateWithBytesNoCopy", "the fake frees no bytes of its caller's");
    }
    return CFDataCreate(allocator, begin, size);
}

CFIndex CFDataGetLength(CFDataRef data)
{
    return static_cast<CFIndex>(as<data_object>(data, "CFDataGetLength")->content.size());
}

UInt8 const* CFDataGetBytePtr(CFDataRef data)
{
    bytes const& content = as<data_object>(data, "CFDataGetBytePtr")->content;
    return !content.empty() ? content.data() : nullptr;
}

void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* buffer)
{
    auto const& content = as<data_object>(data, "CFDataGetBytes")->content;
    if (range.location < 0 || range.length < 0 ||
        static_cast<std::size_t>(range.location + range.length) > content.size()) {
        refuse("CFDataGetBytes", "a range that reaches out of the data");
    }
    if (range.length > 0) {
        std::memcpy(buffer, content.data() + range.location,
                    static_cast<std::size_t>(range.length));
    }
}

// ------------------------------------------------------------------ arrays

CFTypeID CFArrayGetTypeID(void)
{
    return type_id(kind::array);
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef /*allocator*/, CFIndex /*capacity*/,
                                       CFArrayCallBacks const* callbacks)
{
    if (!may_create()) {
        return nullptr;
    }
    auto* const made = make<array_object>();
    if (callbacks != nullptr) {
        made->callbacks = *callbacks;
    }
    return reinterpret_cast<CFMutableArrayRef>(made);
}

CFIndex CFArrayGetCount(CFArrayRef array)
{
    return static_cast<CFIndex>(as<array_object>(array, "CFArrayGetCount")->values.size());
}

void const* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index)
{
    auto const& values = as<array_object>(array, "CFArrayGetValueAtIndex")->values;
    if (index < 0 || static_cast<std::size_t>(index) >= values.size()) {
        refuse("CFArrayGetValueAtIndex", "there is no such value");
    }
    return values[static_cast<std::size_t>(index)];
}

void CFArrayAppendValue(CFMutableArrayRef array, void const* value)
{
    auto* const held = as<array_object>(array, "CFArrayAppendValue");
    held->values.push_back(
        held->callbacks.retain != nullptr ? held->callbacks.retain(nullptr, value) : value);
}

// ------------------------------------------------------------------ dictionaries

CFTypeID CFDictionaryGetTypeID(void)
{
    return type_id(kind::dictionary);
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, void const** keys, void const** values,
                                   CFIndex count, CFDictionaryKeyCallBacks const* key_callbacks,
                                   CFDictionaryValueCallBacks const* value_callbacks)
{
    CFMutableDictionaryRef const made =
        CFDictionaryCreateMutable(allocator, count, key_callbacks, value_callbacks);
    for (CFIndex i = 0; made != nullptr && i < count; ++i) {
        CFDictionaryAddValue(made, keys[i], values[i]);
    }
    return made;
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef /*allocator*/, CFIndex /*capacity*/,
                                                 CFDictionaryKeyCallBacks const*   key_callbacks,
                                                 CFDictionaryValueCallBacks const* value_callbacks)
{
    if (!may_create()) {
        return nullptr;
    }
    auto* const made = make<dictionary_object>();
    if (key_callbacks != nullptr) {
        made->of_keys = *key_callbacks;
    }
    if (value_callbacks != nullptr) {
        made->of_values = *value_callbacks;
    }
    return reinterpret_cast<CFMutableDictionaryRef>(made);
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary)
{
    auto const* const held = as<dictionary_object>(dictionary, "CFDictionaryGetCount");
    return static_cast<CFIndex>(held->entries.size());
}

Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, void const* key)
{
    return as<dictionary_object>(dictionary, "CFDictionaryContainsKey")->find(key) != nullptr;
}

void const* CFDictionaryGetValue(CFDictionaryRef dictionary, void const* key)
{
    entry const* const found = as<dictionary_object>(dictionary, "CFDictionaryGetValue")->find(key);
    return found != nullptr ? found->value : nullptr;
}

void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, void const* key, void const* value)
{
    auto* const held = as<dictionary_object>(dictionary, "CFDictionaryAddValue");
    if (held->find(key) == nullptr) {
        held->add(key, value);
    }
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, void const* key, void const* value)
{
    auto* const        held  = as<dictionary_object>(dictionary, "CFDictionarySetValue");
    entry const* const found = held->find(key);
    if (found == nullptr) {
        held->add(key, value);
        return;
    }
    auto& of_values = held->of_values;
    auto& old       = held->entries[static_cast<std::size_t>(found - held->entries.data())].value;
    void const* const kept = of_values.retain != nullptr ? of_values.retain(nullptr, value) : value;
    void const* const gone = std::exchange(old, kept);
    if (of_values.release != nullptr) {
        of_values.release(nullptr, gone);
    }
}

// ------------------------------------------------------------------ errors

CFTypeID CFErrorGetTypeID(void)
{
    return type_id(kind::error);
}

CFStringRef CFErrorGetDomain(CFErrorRef error)
{
    as<error_object>(error, "CFErrorGetDomain");
    return CFSTR("NSOSStatusErrorDomain");
}

CFIndex CFErrorGetCode(CFErrorRef error)
{
    return as<error_object>(error, "CFErrorGetCode")->code;
}

// ------------------------------------------------------------------ time

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void)
{
    require_first_process("CFAbsoluteTimeGetCurrent");
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9 -
           seconds_to_2001;
}

CFTypeID CFTimeZoneGetTypeID(void)
{
    return type_id(kind::time_zone);
}

CFTimeZoneRef CFTimeZoneCopyDefault(void)
{
    return may_create() ? reinterpret_cast<CFTimeZoneRef>(make<zone_object>()) : nullptr;
}

CFTimeInterval CFTimeZoneGetSecondsFromGMT(CFTimeZoneRef zone, CFAbsoluteTime at)
{
    as<zone_object>(zone, "CFTimeZoneGetSecondsFromGMT");
    {
        std::lock_guard<std::mutex> const hold(the_zone().guard);
        if (the_zone().set) {
            return the_zone().seconds;
        }
    }
    auto const seconds = static_cast<std::time_t>(std::floor(at + seconds_to_2001));
    std::tm    local   = {};
    ::localtime_r(&seconds, &local);  // a process looks up its zone once
    return static_cast<double>(local.tm_gmtoff);
}
