// compose_model_test.cpp - random mails against a model of their composition

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "libmsg/libmsg.h"
#include "libsendw/smtpmsg.h"
#include "tests/libsendw/compose_model.h"
#include "tests/libsendw/random_mail.h"
#include "tests/support/fake_clock.h"
#include "tests/support/files.h"

namespace zelieml
{
namespace
{

constexpr std::uint32_t seed   = 20240229;
constexpr std::uint32_t rounds = 10000;

// Settings files; the first one does not exist.
std::vector<std::optional<std::string>> const settings = {
    {},
    "",
    "subject_use_encoding = yes\r\n",
    "subject_use_encoding = YES\r\n",
    "subject_use_encoding = no\r\n",
    "subject_use_encoding = \r\n",
    "subject_use_encoding\r\n",
    "#subject_use_encoding = no\r\nsubject_use_encoding = yes\r\n",
};

class RandomMails : public testing::Test
{
protected:
    RandomMails()
    {
        ::setenv("TZ", "UTC0", 1);
        ::tzset();
        for (std::size_t i = 0; i < settings.size(); ++i) {
            if (settings[i]) {
                test::write_file(settings_path(i), *settings[i]);
            }
        }
    }

    std::string settings_path(std::size_t number) const
    {
        return dir_.file("settings" + std::to_string(number));
    }

    test::temp_dir const dir_;
};

// A record with the fields of a random message; m receives them.
message_holder random_message(test::random_values& random, test::message& m)
{
    void* made = nullptr;
    EXPECT_EQ(msg_create(&made), 0);
    message_holder    msg(made);
    auto* const       record = static_cast<_s_msg*>(made);
    std::string const body   = random_body(random);
    m.header[0]              = random.pick(
                     {"UTF-8", "UTF-8", "ISO-2022-JP", "ISO-2022-JP", "iso-2022-jp", "", "ISO-2022-JP "});
    m.header[1] = random_header(random);
    m.header[2] = random_addresses(random);
    m.header[3] = random.percent(50) ? random_addresses(random) : "";
    m.header[4] = random_header(random);
    m.header[5] = random_header(random);
    m.header[6] = random.percent(50) ? random_header(random) : "";
    m.body = random.percent(80) ? test::stored_body(body) : body;  // or its line breaks as they are

    record->encoding  = m.header[0];
    record->from      = m.header[1];
    record->to        = m.header[2];
    record->cc        = m.header[3];
    record->subject   = m.header[4];
    record->replyto   = m.header[5];
    record->messageid = m.header[6];
    record->body      = m.body;
    return msg;
}

TEST_F(RandomMails, AreComposedAsTheModelSays)
{
    std::printf("%u rounds with seed %u\n", rounds, seed);
    for (std::uint32_t round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        test::random_values  random(seed + round);
        test::message        m;
        message_holder const msg     = random_message(random, m);
        std::size_t const    number  = random.below(static_cast<std::uint32_t>(settings.size()));
        std::int64_t const   seconds = random.below(0x7fffffff);
        double const         quarter_hours = random.below(108) - 48.0;
        double const         odd           = random.below(60) / 4.0;
        double const         zone          = quarter_hours * 900 + odd;
        test::set_wall_clock(static_cast<std::time_t>(seconds), 0);
        test::set_zone_offset(zone);

        std::vector<std::string> pieces = {"what was there before"};
        EXPECT_EQ(smtpmsg_create_multiline(msg.get(), pieces, settings_path(number).c_str()), 0);
        EXPECT_EQ(pieces, test::model_mail(m, settings[number], test::model_date(seconds, zone)));
        EXPECT_EQ(test::get_all(msg.get()), m);
    }
}

}  // namespace
}  // namespace zelieml
