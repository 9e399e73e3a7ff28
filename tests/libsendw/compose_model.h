// compose_model.h - the text of a mail as docs/FORMATS.md and libsendw/smtpmsg.h describe it

#ifndef ZELIEML_TESTS_LIBSENDW_COMPOSE_MODEL_H
#define ZELIEML_TESTS_LIBSENDW_COMPOSE_MODEL_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/libmsg/message_model.h"

namespace zelieml::test
{

// model_date - the date of a header
//
// seconds      since 1970 began, in UTC, which is the zone of the process
// zone_offset  seconds that the zone is said to be east
std::string model_date(std::int64_t seconds, double zone_offset);

// model_setting - a setting as the send driver reads it, or nothing
//
// settings  the settings file; nothing when there is none
std::optional<std::string> model_setting(std::optional<std::string> const& settings,
                                         std::string const&                key);

// model_addresses - the addresses of a list that is not empty
std::vector<std::string> model_addresses(std::string const& list);

// model_mail - the pieces of a mail, in order
//
// m         its body becomes what the record holds afterwards
// settings  the settings file; nothing when there is none
std::vector<std::string> model_mail(message& m, std::optional<std::string> const& settings,
                                    std::string const& date);

}  // namespace zelieml::test

#endif
