// long_lines_test.cpp - what receiving makes of From lines that are too long

#include "tests/support/clean_machine.h"
#include "tests/support/dialogues.h"
#include "zelieml.h"

namespace zelieml::test
{

class LongFromLine : public on_a_clean_machine
{
protected:
    void SetUp() override
    {
        on_a_clean_machine::SetUp();
        ASSERT_EQ(server_info_create(&record_), 0);
        ASSERT_EQ(eml_receive_msg_create(&list_), 0);
    }

    void TearDown() override
    {
        eml_receive_msg_destroy(list_);
        server_info_destroy(record_);
        on_a_clean_machine::TearDown();
    }

    // The sender of a mail with this From line, CR LF excluded, and this body line.
    std::string sender_of(std::string const& from_line, std::string const& body)
    {
        local_server server(pop_login() + answered("stat", "+OK 1 9") + answered("retr 1", "+OK") +
                            "S: " + from_line + "\nS: \nS: " + body + "\nS: .\n" +
                            answered("dele 1", "+OK") + answered("quit", "+OK"));
        server_info_set_pop(record_, "127.0.0.1", "anna", "secret", "pop", server.port(), 0);
        char text[4096] = "no mail";
        EXPECT_EQ(eml_receive_mails(record_, list_, nullptr), 0) << server.problem();
        EXPECT_EQ(eml_receive_msg_get_from(list_, 0, text, sizeof text), 0);
        return text;
    }

private:
    void* record_ = nullptr;
    void* list_   = nullptr;
};

TEST_F(LongFromLine, IsPassedOverForALaterLineOrNone)
{
    std::string const longest(4095 - 8, 'a');  // with "From: " and CR LF
    EXPECT_EQ(sender_of("From: " + longest, "From: body"), longest);
    EXPECT_EQ(sender_of("From: " + longest + "a", "From: body"), "body");
    EXPECT_EQ(sender_of("From: " + longest + "a", "text"), "");
}

}  // namespace zelieml::test
