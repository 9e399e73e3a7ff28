// random_mail.h - the texts of random mails

#ifndef ZELIEML_TESTS_LIBSENDW_RANDOM_MAIL_H
#define ZELIEML_TESTS_LIBSENDW_RANDOM_MAIL_H

#include <string>

#include "tests/support/random_values.h"

namespace zelieml::test
{

// A value of a header: often short, sometimes of any length, with any byte but CR, LF and NUL.
inline std::string random_header(random_values& random)
{
    if (random.percent(3)) {
        return std::string(900 + random.below(400), 'h');
    }
    return random.text({"tray", " ", "2", "\xe3\x83\x88", "\x1b$B", "=?", "\xff", ",", "<", "@"},
                       12);
}

// A list of addresses: spaces anywhere, empty entries, the same one again.
inline std::string random_addresses(random_values& random)
{
    std::string list;
    for (std::uint32_t count = random.below(6); count > 0; --count) {
        list +=
            random.pick({"anna@b.test", "ben@b.test", " anna@b.test", "Anna@b.test", "a b@c", ""});
        list += count > 1 || random.percent(5) ? random.pick({",", ",", ", ", ";"}) : "";
    }
    return list;
}

// A body, with dots, line breaks of all kinds and Base64 lines that are just full.
inline std::string random_body(random_values& random)
{
    std::string body =
        random.text({"a", "word ", ".", "..", "\n", "\r", "\r\n", "\n.\n", "\r\n.\r\n", "\n.",
                     "\x1b$B%H\x1b(B", "\xe3\x83\x88", "\xff\x01", "=", "\t", "From x"},
                    30);
    if (random.percent(50)) {
        body.resize(50 + random.below(80), 'b');
    }
    return body;
}

}  // namespace zelieml::test

#endif
