#include "tests/soak/server.h"

#include <cstdlib>
#include <string>
#include <string_view>

#include "tests/soak/books.h"
#include "tests/soak/texts.h"

namespace zelieml::test
{

char const reply_goodbye[]      = "221 2.0.0 goodbye %u\r\n";
char const reply_refused[]      = "451 4.2.1 not now %u\r\n";
char const reply_text_refused[] = "554 5.6.0 not this %u\r\n";
char const text_end[]           = "the end of %u\r\n";

namespace
{

using mailserver::stream;

constexpr auto patience      = std::chrono::seconds(60);
constexpr int  slow_reply_us = 5000;

class session
{
public:
    explicit session(descriptor client) : peer_(std::move(client), patience) {}

    void run()
    {
        peer_.write("220 soak ready\r\n");
        std::string line;
        while (read(line) && obey(line)) {
        }
    }

private:
    bool read(std::string& line)
    {
        stream::piece const heard = peer_.read_line();
        line                      = heard.text;
        return heard.what == stream::arrival::line;
    }

    bool reply(std::string_view text)
    {
        if (mail_ != nullptr && mail_->end == fate::taken_slowly) {
            ::usleep(slow_reply_us);
        }
        return peer_.write(text);
    }

    // Returns false when the session is over.
    bool obey(std::string const& line)
    {
        std::string_view const verb = std::string_view(line).substr(0, 4);
        if (verb == "mail") {
            return begin_mail(line) && reply("250 ok\r\n");
        }
        if (verb == "rcpt") {
            return recipient();
        }
        if (verb == "data") {
            return reply("354 go on\r\n") && take_text();
        }
        if (verb == "quit") {
            reply(numbered_text(reply_goodbye, number_));
            return false;
        }
        return reply("250 ok\r\n");
    }

    bool begin_mail(std::string const& line)
    {
        if (!find_number(line, "mail from: <%u@", number_) || number_ >= book->mails) {
            report_failure("the server heard " + line);
            return false;
        }
        mail_    = &book->account[number_];
        attempt_ = ++mail_->attempts;
        return true;
    }

    bool recipient()
    {
        fate const end = mail_->end;
        if (end == fate::hung_up_once && attempt_ == 1) {
            ++book->hang_ups;
            return false;
        }
        bool const refused =
            end == fate::refused_twice || (end == fate::refused_once && attempt_ == 1);
        return reply(refused ? numbered_text(reply_refused, number_) : "250 ok\r\n");
    }

    bool take_text()
    {
        std::string line;
        std::string last;
        while (read(line) && line != ".\r\n") {
            last = line == "\r\n" ? last : line;
        }
        if (line != ".\r\n" || last != numbered_text(text_end, number_)) {
            report_failure("the text of a mail ends with " + last);
        }
        if (mail_->end == fate::text_refused_once && attempt_ == 1) {
            return reply(numbered_text(reply_text_refused, number_));
        }
        ++mail_->delivered;
        return reply("250 taken\r\n");
    }

    stream        peer_;
    unsigned      number_  = 0;
    mail_account* mail_    = nullptr;
    int           attempt_ = 0;
};

}  // namespace

void serve(mailserver::listener const& door)
{
    mailserver::stop_signal const never;
    for (;;) {
        if (!mailserver::wait_for_client(door, never, patience)) {
            continue;
        }
        descriptor client = door.accept();
        if (client) {
            mailserver::start_thread([fd = std::move(client)]() mutable {
                session(std::move(fd)).run();
            }).detach();
        }
    }
}

}  // namespace zelieml::test
