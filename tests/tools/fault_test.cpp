#include "tools/mailserver/fault.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace zelieml::mailserver
{

TEST(ParseFault, UnderstandsEveryAction)
{
    struct fault_case {
        explicit fault_case(char const* its_text) : text(its_text) {}

        fault_case& at(char const* its_step, fault::action its_action)
        {
            step = its_step;
            what = its_action;
            return *this;
        }
        fault_case& by(int its_amount)
        {
            amount = its_amount;
            return *this;
        }
        fault_case& says(char const* its_reply)
        {
            reply = its_reply;
            return *this;
        }

        char const*   text;
        char const*   step   = "";
        fault::action what   = fault::action::refuse;
        int           amount = 0;
        char const*   reply  = "";
    };
    fault_case const cases[] = {
        fault_case("rcpt=refuse:550 5.1.1 no: user")
            .at("rcpt", fault::action::refuse)
            .says("550 5.1.1 no: user"),
        fault_case("rcpt=refuse").at("rcpt", fault::action::refuse),
        fault_case("smtp.quit=close").at("smtp.quit", fault::action::close),
        fault_case("pop.quit=reset").at("pop.quit", fault::action::reset),
        fault_case("text=silent").at("text", fault::action::silent),
        fault_case("retr=delay:2000").at("retr", fault::action::delay).by(2000),
        fault_case("greeting=trickle:0").at("greeting", fault::action::trickle),
        fault_case("ehlo=cut:7").at("ehlo", fault::action::cut).by(7),
    };
    for (auto const& c : cases) {
        fault const f = parse_fault(c.text);
        EXPECT_EQ(f.step, c.step) << c.text;
        EXPECT_EQ(f.what, c.what) << c.text;
        EXPECT_EQ(f.amount, c.amount) << c.text;
        EXPECT_EQ(f.text, c.reply) << c.text;
        EXPECT_LT(f.times, 0) << c.text;
    }
}

TEST(ParseFault, SaysWhatIsWrong)
{
    struct {
        char const* text;
        char const* problem;
    } const cases[] = {
        {"rcpt", "a fault is written step=action or step=action:argument"},
        {"", "a fault is written step=action or step=action:argument"},
        {"rctp=close", "there is no step \"rctp\""},
        {"smtp.retr=close", "there is no step \"smtp.retr\""},
        {"RCPT=close", "there is no step \"RCPT\""},
        {"rcpt=", "there is no action \"\""},
        {"rcpt=explode", "there is no action \"explode\""},
        {"rcpt=close:now", "the action close takes no argument"},
        {"rcpt=delay", "the action delay takes a number, as in delay:50"},
        {"rcpt=delay:", "the action delay takes a number, as in delay:50"},
        {"rcpt=delay:5s", "the action delay takes a number, as in delay:50"},
        {"rcpt=cut:-1", "the action cut takes a number, as in cut:50"},
        {"rcpt=delay:99999999999", "the action delay takes a number, as in delay:50"},
    };
    for (auto const& c : cases) {
        try {
            parse_fault(c.text);
            ADD_FAILURE() << c.text << " was understood";
        } catch (std::invalid_argument const& e) {
            EXPECT_STREQ(e.what(), c.problem) << c.text;
        }
    }
}

TEST(FaultTable, CountsHowOftenAFaultIsLeft)
{
    fault_table table({{"rcpt", fault::action::close, 0, "", 2}, {"rcpt", fault::action::reset}});
    EXPECT_EQ(table.take(protocol::smtp, "rcpt")->what, fault::action::close);
    EXPECT_EQ(table.take(protocol::smtp, "rcpt")->what, fault::action::close);
    EXPECT_EQ(table.take(protocol::smtp, "rcpt")->what, fault::action::reset);
    EXPECT_EQ(table.take(protocol::smtp, "rcpt")->what, fault::action::reset);
    EXPECT_FALSE(table.take(protocol::smtp, "mail"));
}

TEST(FaultTable, TellsTheProtocolsApartWhenAsked)
{
    fault_table table({{"smtp.quit", fault::action::close}, {"noop", fault::action::close}});
    EXPECT_TRUE(table.take(protocol::smtp, "quit"));
    EXPECT_FALSE(table.take(protocol::pop, "quit"));
    EXPECT_TRUE(table.take(protocol::smtp, "noop"));
    EXPECT_TRUE(table.take(protocol::pop, "noop"));
}

}  // namespace zelieml::mailserver
