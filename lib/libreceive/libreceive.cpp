// libreceive.cpp - empty a POP3 mailbox and keep sender and subject of each mail

#include "libreceive/libreceive.h"

#include <limits>
#include <utility>

#include "liblog/trace.h"
#include "libreceive/analyze.h"
#include "support/format.h"

namespace zelieml
{

namespace
{

// Notices a mailbox that never gets empty, because the server does not delete. The mails tell, and
// not the replies: a server may delete and speak of errors, or show only part of a mailbox.
class standstill
{
public:
    // Takes in the mail of a session and how many remain. Returns whether the limit is reached.
    bool reached(std::int32_t remaining, std::vector<std::string>& mail)
    {
        bool const same     = mail == mail_;
        bool const progress = !same || remaining < lowest_;
        in_vain_            = progress ? 0 : in_vain_ + 1;
        if (progress) {
            lowest_ = remaining;
            mail_   = std::move(mail);
        }
        return in_vain_ >= limit;
    }

private:
    static constexpr int limit = 1000;

    std::vector<std::string> mail_;  // of the session before
    // The fewest that remained since that mail first came.
    std::int32_t lowest_  = std::numeric_limits<std::int32_t>::max();
    int          in_vain_ = 0;  // sessions in a row without progress
};

// Copies a line of a list without its key.
int get_line(void* list, std::vector<std::string> _s_receive_msg::*lines, char const* key,
             int index, char* buffer, int length)
{
    if (list == nullptr || buffer == nullptr) {
        return -1;
    }
    auto const& mails = *static_cast<_s_receive_msg*>(list);
    if (index < 0 || index >= mails.count) {
        return -1;
    }
    std::string const& line = (mails.*lines)[static_cast<std::size_t>(index)];
    // The whole line has to fit, though its key is not copied: deliberate, see docs/ODDITIES.md.
    if (length < 0 || line.size() + 1 > static_cast<std::size_t>(length)) {
        return -1;
    }
    return copy_to_caller(delete_keyword(line, key), buffer, length);
}

}  // namespace

int receive_msg_create(void** list)
{
    if (list == nullptr) {
        return -1;
    }
    *list = new _s_receive_msg();
    return 0;
}

int receive_msg_destroy(void* list)
{
    delete static_cast<_s_receive_msg*>(list);
    return 0;
}

void receive_msg_init(_s_receive_msg& list)
{
    list = {};
}

int receive_msg_count(void* list)
{
    return list == nullptr ? 0 : static_cast<_s_receive_msg*>(list)->count;
}

int receive_mails(void* server, void* list, char const* domains)
{
    if (server == nullptr || list == nullptr) {
        return -1;
    }
    auto& received = *static_cast<_s_receive_msg*>(list);
    receive_msg_init(received);

    _s_receive_msg           collected;
    standstill               watch;
    std::vector<std::string> mail;
    std::int32_t             remaining = 0;
    do {
        if (process_one_mail(*static_cast<_s_mailserver*>(server), remaining, collected.from,
                             collected.subject, &mail) != 0 ||
            (remaining >= 1 && watch.reached(remaining, mail))) {
            trace_msg("error:process_one_mail");
            return -1;
        }
    } while (remaining >= 1);
    collected.count = static_cast<std::int32_t>(collected.from.size());

    _s_receive_msg kept;
    kept.count = collected.count;
    if (domains == nullptr || *domains == '\0') {
        copy_in_to_out(collected.from, kept.from);
        copy_in_to_out(collected.subject, kept.subject);
    } else {
        analyze_domain(domains, kept.count, collected.from, collected.subject, kept.from,
                       kept.subject);
    }
    received = std::move(kept);
    return 0;
}

int process_one_mail(_s_mailserver const& server, std::int32_t& remaining,
                     std::vector<std::string>& froms, std::vector<std::string>& subjects,
                     std::vector<std::string>* mail)
{
    std::int32_t fetched = 0;
    std::string  from;
    std::string  subject;
    std::string  reply;
    if (fetchmail_get_one_mail(server, fetched, remaining, from, subject, reply, mail) != 0) {
        trace_msg("error:fetchmail_get_one_mail");
        return -1;
    }
    if (fetched != 0) {
        froms.push_back(from);
        subjects.push_back(subject);
    }
    return 0;
}

void copy_in_to_out(std::vector<std::string> const& in, std::vector<std::string>& out)
{
    out.insert(out.end(), in.begin(), in.end());
}

int receive_msg_get_from(void* list, int index, char* buffer, int length)
{
    return get_line(list, &_s_receive_msg::from, key_from, index, buffer, length);
}

int receive_msg_get_subject(void* list, int index, char* buffer, int length)
{
    return get_line(list, &_s_receive_msg::subject, key_subject, index, buffer, length);
}

}  // namespace zelieml
