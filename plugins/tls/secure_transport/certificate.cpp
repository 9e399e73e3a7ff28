// certificate.cpp - what a certificate says of itself (RFC 5280)

#include "plugins/tls/secure_transport/certificate.h"

#include <algorithm>
#include <arpa/inet.h>
#include <utility>

#include "support/ascii.h"

namespace zelieml::tls
{

namespace
{

// Tags of DER.
enum : unsigned char {
    tag_boolean      = 0x01,
    tag_integer      = 0x02,
    tag_octets       = 0x04,
    tag_oid          = 0x06,
    tag_utf8         = 0x0C,
    tag_printable    = 0x13,
    tag_ia5          = 0x16,
    tag_utc_time     = 0x17,
    tag_time         = 0x18,
    tag_sequence     = 0x30,
    tag_set          = 0x31,
    tag_host         = 0x82,  // in a general name
    tag_address      = 0x87,
    tag_version      = 0xA0,  // in a certificate
    tag_issuer_id    = 0x81,
    tag_subject_id   = 0x82,
    tag_extensions   = 0xA3,
    long_length      = 0x80,
    most_length_size = 4
};

constexpr char alternative_names[] = "\x55\x1D\x11";
constexpr char purposes[]          = "\x55\x1D\x25";

// The attributes of names that a reader gets to see.
struct attribute {
    char const* oid;
    char const* name;
};

constexpr attribute attributes[] = {{"\x55\x04\x03", "CN"}, {"\x55\x04\x06", "C"},
                                    {"\x55\x04\x07", "L"},  {"\x55\x04\x08", "ST"},
                                    {"\x55\x04\x0A", "O"},  {"\x55\x04\x0B", "OU"}};

// One thing after the other. After what cannot be read there is nothing more.
class der_reader
{
public:
    explicit der_reader(std::string bytes) : bytes_(std::move(bytes)) {}

    bool is_at(unsigned char tag) const { return !is_at_end() && byte(at_) == tag; }
    bool is_at_end() const { return at_ == bytes_.size(); }

    // The contents of the next one, which has to have this tag.
    bool take(unsigned char tag, std::string& contents)
    {
        std::string all;
        return is_at(tag) && take_any(all, contents);
    }

    // The same for a thing that nobody looks at.
    bool skip(unsigned char tag)
    {
        std::string ignored;
        return take(tag, ignored);
    }

    // The next one, whatever it is: all of it, and its contents.
    bool take_any(std::string& all, std::string& contents)
    {
        std::size_t head = 2;
        std::size_t size = byte(at_ + 1);
        if (size >= long_length) {
            std::size_t const digits = size - long_length;
            size                     = digits == 0 || digits > most_length_size ? bytes_.size() : 0;
            for (; head < 2 + digits && size < bytes_.size(); ++head) {
                size = size << 8 | byte(at_ + head);
            }
        }
        std::size_t const left = bytes_.size() - at_;
        if (left < head || left - head < size) {
            at_ = bytes_.size();
            return false;
        }
        all      = bytes_.substr(at_, head + size);
        contents = bytes_.substr(at_ + head, size);
        at_ += head + size;
        return true;
    }

private:
    std::size_t byte(std::size_t at) const
    {
        return at < bytes_.size() ? static_cast<unsigned char>(bytes_[at]) : 0;
    }

    std::string bytes_;
    std::size_t at_ = 0;
};

// What is to be shown: nothing that ends a line, or a string.
std::string shown(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c >= 0 && c < ' '; }, '?');
    return text;
}

// "C=US,O=An Authority,CN=Its Name"
std::string readable(std::string const& name)
{
    std::string parts;
    std::string part;
    std::string text;
    der_reader  outside(name);
    if (!outside.take(tag_sequence, parts)) {
        return "";
    }
    der_reader all(parts);
    while (all.take(tag_set, part)) {
        std::string pair;
        std::string oid;
        std::string whole;
        std::string value;
        if (!der_reader(part).take(tag_sequence, pair)) {
            continue;
        }
        der_reader both(pair);
        if (!both.take(tag_oid, oid) ||
            !(both.is_at(tag_utf8) || both.is_at(tag_printable) || both.is_at(tag_ia5)) ||
            !both.take_any(whole, value)) {
            continue;
        }
        for (attribute const& known : attributes) {
            if (oid == known.oid) {
                text += (text.empty() ? "" : ",") + std::string(known.name) + "=" + shown(value);
            }
        }
    }
    return text;
}

// A time with its century.
bool take_time(der_reader& from, std::string& when)
{
    constexpr std::size_t digits = 14;
    std::string           text;
    if (from.is_at(tag_utc_time) && from.take(tag_utc_time, text) && !text.empty()) {
        text.insert(0, text.front() < '5' ? "20" : "19");
    } else if (!from.take(tag_time, text)) {
        return false;
    }
    when = text.substr(0, digits);
    return text.size() == digits + 1 && text.back() == 'Z' &&
           when.find_first_not_of("0123456789") == when.npos;
}

bool read_names(std::string const& value, certificate& read)
{
    std::string names;
    std::string all;
    std::string contents;
    if (!der_reader(value).take(tag_sequence, names)) {
        return false;
    }
    der_reader each(names);
    while (!each.is_at_end()) {
        bool const is_host = each.is_at(tag_host);
        bool const is_ip   = each.is_at(tag_address);
        if (!each.take_any(all, contents)) {
            return false;
        }
        if (is_host) {
            read.hosts.push_back(shown(contents));
        } else if (is_ip) {
            read.addresses.push_back(contents);
        }
    }
    return true;
}

// Servers, or any purpose.
bool is_for_servers(std::string const& purpose)
{
    return purpose == "\x2B\x06\x01\x05\x05\x07\x03\x01" || purpose == std::string(purposes) + '\0';
}

bool read_purposes(std::string const& value, certificate& read)
{
    std::string all;
    std::string one;
    bool        is_fitting = false;
    if (!der_reader(value).take(tag_sequence, all)) {
        return false;
    }
    der_reader each(all);
    while (!each.is_at_end()) {
        if (!each.take(tag_oid, one)) {
            return false;
        }
        is_fitting = is_fitting || is_for_servers(one);
    }
    read.is_for_servers = read.is_for_servers && is_fitting;
    return true;
}

bool read_extensions(std::string const& list, certificate& read)
{
    std::string extensions;
    std::string one;
    if (!der_reader(list).take(tag_sequence, extensions)) {
        return false;
    }
    der_reader each(extensions);
    while (!each.is_at_end()) {
        std::string oid;
        std::string value;
        if (!each.take(tag_sequence, one)) {
            return false;
        }
        der_reader parts(one);
        if (!parts.take(tag_oid, oid) || (parts.is_at(tag_boolean) && !parts.skip(tag_boolean)) ||
            !parts.take(tag_octets, value) ||
            (oid == alternative_names && !read_names(value, read)) ||
            (oid == purposes && !read_purposes(value, read))) {
            return false;
        }
    }
    return true;
}

// The bytes of an IP address, or nothing.
std::string address_of(std::string const& host)
{
    char bytes[sizeof(in6_addr)];
    if (::inet_pton(AF_INET, host.c_str(), bytes) == 1) {
        return std::string(bytes, sizeof(in_addr));
    }
    if (::inet_pton(AF_INET6, host.c_str(), bytes) == 1) {
        return std::string(bytes, sizeof(in6_addr));
    }
    return "";
}

}  // namespace

bool read_certificate(std::string const& der, certificate& read)
{
    std::string outer;
    std::string inner;
    std::string contents;
    std::string validity;
    std::string extensions;
    read = certificate();
    if (!der_reader(der).take(tag_sequence, outer) ||
        !der_reader(outer).take(tag_sequence, inner)) {
        return false;
    }
    der_reader fields(inner);
    if ((fields.is_at(tag_version) && !fields.skip(tag_version)) || !fields.skip(tag_integer) ||
        !fields.skip(tag_sequence) || !fields.is_at(tag_sequence) ||
        !fields.take_any(read.issuer, contents) || !fields.take(tag_sequence, validity) ||
        !fields.is_at(tag_sequence) || !fields.take_any(read.subject, contents) ||
        !fields.skip(tag_sequence)) {
        return false;
    }
    der_reader times(validity);
    if (!take_time(times, read.from) || !take_time(times, read.until)) {
        return false;
    }
    read.issuer_name = readable(read.issuer);
    for (unsigned char const unused : {tag_issuer_id, tag_subject_id}) {
        if (fields.is_at(unused) && !fields.skip(unused)) {
            return false;
        }
    }
    return fields.is_at_end() ||
           (fields.take(tag_extensions, extensions) && read_extensions(extensions, read));
}

bool is_for(certificate const& shown, std::string const& host)
{
    std::string const address = address_of(host);
    if (!address.empty()) {
        return std::find(shown.addresses.begin(), shown.addresses.end(), address) !=
               shown.addresses.end();
    }
    std::size_t const dot = host.find('.');
    std::string const any = dot != host.npos && dot > 0 ? "*" + host.substr(dot) : host;
    return std::any_of(shown.hosts.begin(), shown.hosts.end(), [&](std::string const& name) {
        return !name.empty() && (equal_ignoring_case(name, host) || equal_ignoring_case(name, any));
    });
}

bool is_address(std::string const& host)
{
    return !address_of(host).empty();
}

}  // namespace zelieml::tls
