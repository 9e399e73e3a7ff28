// libreceive.cpp - empty a POP3 mailbox and keep sender and subject of each mail

#include "libreceive/libreceive.h"

#include <utility>

#include "liblog/trace.h"
#include "libreceive/analyze.h"
#include "support/format.h"

namespace zelieml
{

namespace
{

// Notices a mailbox that never gets smaller, because the server refuses to delete or only pretends
// to. No honest server comes near the limit.
class standstill
{
public:
    // Takes in what a session saw. Returns whether the limit is reached.
    bool reached(mailbox_state const& now)
    {
        bool const same = now.count == before_.count && now.size == before_.size;
        same_           = same ? same_ + 1 : 1;
        refused_        = now.dele_refused ? refused_ + 1 : 0;
        before_         = now;
        return same_ >= limit || refused_ >= limit;
    }

private:
    static constexpr int limit = 1000;

    mailbox_state before_;       // empty at first, unlike any mailbox that goes on
    int           same_    = 0;  // sessions in a row with the same numbers from STAT
    int           refused_ = 0;  // sessions in a row in which DELE was refused
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

    _s_receive_msg collected;
    standstill     watch;
    std::int32_t   remaining = 0;
    do {
        mailbox_state mailbox;
        if (process_one_mail(*static_cast<_s_mailserver*>(server), remaining, collected.from,
                             collected.subject, mailbox) != 0 ||
            (remaining >= 1 && watch.reached(mailbox))) {
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
                     mailbox_state& mailbox)
{
    std::int32_t fetched = 0;
    std::string  from;
    std::string  subject;
    std::string  reply;
    if (fetchmail_get_one_mail(server, fetched, remaining, from, subject, reply, mailbox) != 0) {
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
