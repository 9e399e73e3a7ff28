// server.h - the mail server of the load: it does with each mail what the books say

#ifndef ZELIEML_TESTS_SOAK_SERVER_H
#define ZELIEML_TESTS_SOAK_SERVER_H

#include "tools/mailserver/socket.h"

namespace zelieml::test
{

// What it says of a mail, so that a report names the mail. Each with the number of the mail.
extern char const reply_goodbye[];
extern char const reply_refused[];
extern char const reply_text_refused[];

// What the text of a mail ends with, with its number.
extern char const text_end[];

// Serves for ever.
[[noreturn]] void serve(mailserver::listener const& door);

}  // namespace zelieml::test

#endif
