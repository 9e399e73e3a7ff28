// libreceive.cpp - empty a POP3 mailbox and keep sender and subject of each mail

#include "libreceive/libreceive.h"

#include <limits>
#include <utility>

#include "libemlw/callback.h"
#include "liblog/trace.h"
#include "libreceive/analyze.h"
#include "libreceive/encoded_words.h"
#include "libsendw/libsendw.h"
#include "support/attempt_note.h"
#include "support/c_boundary.h"
#include "support/format.h"
#include "support/step_names.h"

namespace zelieml
{

namespace
{

// Notices a mailbox that never gets empty, because the server does not delete. The mails tell, and
// not the replies: a server may delete and speak of errors, or show only part of a mailbox.
class standstill
{
public:
    // Takes in the mail of a session, how many remain, and how many were collected. Returns whether
    // the limit is reached.
    bool reached(std::int32_t remaining, std::vector<std::string>& mail, std::size_t collected)
    {
        bool const same     = mail == mail_;
        bool const progress = !same || remaining < lowest_;
        in_vain_            = progress ? 0 : in_vain_ + 1;
        if (progress) {
            lowest_ = remaining;
            mail_   = std::move(mail);
            before_ = collected;
        }
        return in_vain_ >= limit;
    }

    // How many were collected before the sessions in vain.
    std::size_t collected_before() const { return before_; }

private:
    static constexpr int limit = 1000;

    std::vector<std::string> mail_;  // of the session before
    // The fewest that remained since that mail first came.
    std::int32_t lowest_  = std::numeric_limits<std::int32_t>::max();
    int          in_vain_ = 0;  // sessions in a row without progress
    std::size_t  before_  = 0;
};

bool has_mail(void* list, int index)
{
    return list != nullptr && index >= 0 && index < receive_msg_count(list);
}

// Copies a line of a list without its key.
int get_line(void* list, std::vector<std::string> _s_receive_msg::*lines, char const* key,
             int index, char* buffer, int length)
{
    if (!has_mail(list, index) || buffer == nullptr) {
        return -1;
    }
    auto const&        mails = *static_cast<_s_receive_msg*>(list);
    std::string const& line  = (mails.*lines)[static_cast<std::size_t>(index)];
    // The whole line has to fit, though its key is not copied: deliberate, see docs/ODDITIES.md.
    if (length < 0 || line.size() + 1 > static_cast<std::size_t>(length)) {
        return -1;
    }
    return copy_to_caller(delete_keyword(line, key), buffer, length);
}

// Copies a field of a header as text.
int get_field(void* list, mail_field field, std::string (*text)(std::string const&), int index,
              char* buffer, int length)
{
    if (!has_mail(list, index)) {
        return -1;
    }
    auto const&        mails  = *static_cast<_s_receive_msg*>(list);
    std::string const& header = mails.header[static_cast<std::size_t>(index)];
    return copy_to_caller(text(get_mail_field(header, field)), buffer, length);
}

// receive_mails that throws nothing, but notes lack of memory.
int noted_receive(void* server, void* list, char const* domains, std::string& last_line,
                  receiving how)
{
    constexpr int thrown = -2;
    int const     result = at_c_boundary(
            thrown, [&] { return receive_mails(server, list, domains, &last_line, how); });
    if (result == thrown) {
        note_no_memory();
        return -1;
    }
    return result;
}

// Cuts a list back to its first mails.
void cut_back(_s_receive_msg& list, std::size_t mails)
{
    list.from.resize(mails);
    list.subject.resize(mails);
    list.header.resize(mails);
    list.count = static_cast<std::int32_t>(mails);
}

// Fetches until the mailbox is empty. Returns -1 when that fails; the mails that were fetched before
// are there all the same, also one that the server may not have deleted.
int collect(_s_mailserver const& server, _s_receive_msg& collected, std::string* reply,
            receiving how)
{
    pop_greeting const greeting =
        how == receiving::careful ? pop_greeting::of_pop3 : pop_greeting::any;
    standstill               watch;
    std::vector<std::string> mail;
    std::int32_t             remaining = 0;
    do {
        int const result = process_one_mail(server, remaining, collected.from, collected.subject,
                                            &mail, reply, greeting);
        if (collected.header.size() < collected.from.size()) {  // the session brought a mail
            collected.header.push_back(read_mail_header(mail));
            ++collected.count;
        }
        if (result != 0) {
            trace_msg("error:process_one_mail");
            return -1;
        }
        if (remaining >= 1 && watch.reached(remaining, mail, collected.header.size())) {
            cut_back(collected, watch.collected_before());
            note_failure(eml_cause_protocol, step_name::dele,
                         "the server does not delete: it sends the same mail again and again");
            trace_msg("error:process_one_mail");
            return -1;
        }
    } while (remaining >= 1);
    return 0;
}

// collect that throws nothing: when memory runs out, the mails that were fetched before are there.
int noted_collect(_s_mailserver const& server, _s_receive_msg& collected, std::string* reply,
                  receiving how)
{
    constexpr int thrown = -2;
    int const     result =
        at_c_boundary(thrown, [&] { return collect(server, collected, reply, how); });
    if (result != thrown) {
        return result;
    }
    note_no_memory();
    cut_back(collected, collected.header.size());
    return -1;
}

// Those of the mails that come from an allowed domain.
_s_receive_msg allowed(_s_receive_msg collected, char const* domains)
{
    if (domains == nullptr || *domains == '\0') {
        return collected;
    }
    _s_receive_msg kept;
    kept.count = collected.count;
    std::vector<std::size_t> accepted;
    analyze_domain(domains, kept.count, collected.from, collected.subject, kept.from, kept.subject,
                   &accepted);
    for (std::size_t const place : accepted) {
        kept.header.push_back(std::move(collected.header[place]));
    }
    return kept;
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

int receive_mails(void* server, void* list, char const* domains, std::string* reply, receiving how)
{
    if (server == nullptr || list == nullptr) {
        note_failure(eml_cause_settings, step_name::settings,
                     "there is no server record, or no list");
        return -1;
    }
    auto& received = *static_cast<_s_receive_msg*>(list);
    receive_msg_init(received);

    _s_receive_msg collected;
    int const result = noted_collect(*static_cast<_s_mailserver*>(server), collected, reply, how);
    if (result == 0 || how == receiving::careful) {
        received = allowed(std::move(collected), domains);
    }
    return result;
}

int receive_mails_sized(void* server, void* list, char const* domains, char* reply, int reply_size,
                        char* reason, int reason_size)
{
    noting_attempt const attempt;
    std::string          last_line;
    int const            result = noted_receive(server, list, domains, last_line, receiving::plain);
    copy_cut(last_line.c_str(), reply, reply_size);
    copy_cut(result != 0 ? attempt->reason : "", reason, reason_size);
    return result;
}

int receive_mails_result(void* server, void* list, char const* domains, void** result)
{
    if (result == nullptr) {
        return -1;
    }
    noting_attempt const attempt(1);
    std::string          last_line;
    int const status = noted_receive(server, list, domains, last_line, receiving::careful);
    int const failed = attempt->result != 0 ? attempt->result : send_other_failure;
    *result          = create_callback_info(status == 0 ? send_ok : failed, last_line);
    return status;
}

int process_one_mail(_s_mailserver const& server, std::int32_t& remaining,
                     std::vector<std::string>& froms, std::vector<std::string>& subjects,
                     std::vector<std::string>* mail, std::string* last_line, pop_greeting greeting)
{
    std::int32_t fetched = 0;
    std::string  from;
    std::string  subject;
    std::string  reply;
    int const    result =
        fetchmail_get_one_mail(server, fetched, remaining, from, subject, reply, mail, greeting);
    if (last_line != nullptr) {
        *last_line = std::move(reply);
    }
    if (fetched != 0) {
        froms.push_back(from);
        subjects.push_back(subject);
    }
    if (result != 0) {
        trace_msg("error:fetchmail_get_one_mail");
        return -1;
    }
    return 0;
}

int receive_msg_get_from(void* list, int index, char* buffer, int length)
{
    return get_line(list, &_s_receive_msg::from, key_from, index, buffer, length);
}

int receive_msg_get_subject(void* list, int index, char* buffer, int length)
{
    return get_line(list, &_s_receive_msg::subject, key_subject, index, buffer, length);
}

int receive_msg_get_sender_utf8(void* list, int index, char* buffer, int length)
{
    return get_field(list, mail_field::from, decoded_text, index, buffer, length);
}

int receive_msg_get_subject_utf8(void* list, int index, char* buffer, int length)
{
    return get_field(list, mail_field::subject, decoded_text, index, buffer, length);
}

int receive_msg_get_messageid(void* list, int index, char* buffer, int length)
{
    return get_field(list, mail_field::messageid, plain_text, index, buffer, length);
}

int receive_msg_get_date(void* list, int index, char* buffer, int length)
{
    return get_field(list, mail_field::date, plain_text, index, buffer, length);
}

}  // namespace zelieml
