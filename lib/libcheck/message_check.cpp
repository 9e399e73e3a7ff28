// message_check.cpp - what would go wrong with a message
//
// docs/CHECKS.md lists the findings.

#include "libcheck/message_check.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "libmsg/libmsg.h"
#include "libsendw/smtpmsg.h"
#include "libsendw/sock.h"
#include "support/utf8.h"

namespace zelieml
{

namespace
{

constexpr std::size_t max_line    = 998;  // bytes without CR LF (RFC 5322, 2.1.1)
constexpr std::size_t max_command = 512;  // bytes with CR LF (RFC 5321, 4.5.3.1.4)
constexpr int         most_named  = 10;   // lines of the body, recipients: of one kind of finding

// The longest headers that make lines of max_line bytes.
constexpr std::size_t max_from         = 992;
constexpr std::size_t max_messageid    = 986;
constexpr std::size_t max_subject_utf8 = 732;
constexpr std::size_t max_subject_jis  = 726;

bool is_not_ascii(char c)
{
    return static_cast<unsigned char>(c) >= 0x80;
}

bool is_control(char c)
{
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

// A blank, a control character, or not ASCII.
bool is_no_graphic(char c)
{
    return c <= ' ' || c == 0x7F || is_not_ascii(c);
}

bool contains(std::string const& text, bool (*is)(char c))
{
    for (char const c : text) {
        if (is(c)) {
            return true;
        }
    }
    return false;
}

// Where a CR is that does not belong to a CR LF.
std::size_t find_lone_cr(std::string const& text)
{
    std::size_t place = text.find('\r');
    while (place != std::string::npos && text[place + 1] == '\n') {
        place = text.find('\r', place + 1);
    }
    return place;
}

// The lines of a text, one after the other.
class line_by_line
{
public:
    explicit line_by_line(std::string const& text) : text_(text) {}

    // Goes to the next line. Returns false at the end of the text.
    bool next()
    {
        start_ = end_;
        end_   = text_.find('\n', start_);
        size_  = (end_ != std::string::npos ? end_ : text_.size()) - start_;
        end_   = start_ + size_ + 1;
        return start_ < text_.size();
    }

    // What follows the line is a line end or a NUL.
    char const* line() const { return text_.c_str() + start_; }
    std::size_t size() const { return size_; }
    bool        is_last() const { return end_ >= text_.size(); }

private:
    std::string const& text_;
    std::size_t        start_ = 0;
    std::size_t        size_  = 0;
    std::size_t        end_   = 0;  // behind the line end
};

// Reads text in an encoding, one line after the other.
class text_reader
{
public:
    explicit text_reader(bool jis) : jis_(jis) {}

    // Returns the place, from 1, of the first byte that does not belong to the encoding, or 0.
    //
    // line  followed by a line end or a NUL
    std::size_t read(char const* line, std::size_t size)
    {
        std::size_t bad = 0;
        for (std::size_t i = 0; i < size;) {
            std::size_t const count = jis_ ? read_jis(line + i) : utf8_size(line + i);
            if (count == 0 && bad == 0) {
                bad = i + 1;
            }
            i += std::max<std::size_t>(count, 1);
        }
        return bad;
    }

    // Whether the line that was read last had to return to ASCII: JIS X 0201 may reach over line
    // ends, not over the end of the text (RFC 1468).
    bool is_open(bool last) const { return set_ == two_bytes || (last && set_ == roman); }

private:
    enum characters {
        ascii,
        roman,
        two_bytes
    };

    // The bytes of the character or escape sequence at text, or 0.
    std::size_t read_jis(char const* text)
    {
        static constexpr struct {
            char       bytes[4];
            characters set;
        } escapes[] = {
            {"\033(B", ascii}, {"\033(J", roman}, {"\033$@", two_bytes}, {"\033$B", two_bytes}};

        if (*text == '\033') {
            for (auto const& escape : escapes) {
                if (std::strncmp(text, escape.bytes, 3) == 0) {
                    set_ = escape.set;
                    return 3;
                }
            }
            return 0;
        }
        if (set_ == two_bytes) {
            return is_graphic(text[0]) && is_graphic(text[1]) ? 2 : 0;
        }
        bool const shifts = *text == '\016' || *text == '\017';
        return is_not_ascii(*text) || shifts ? 0 : 1;
    }

    static bool is_graphic(char c) { return c > ' ' && c < 0x7F; }

    bool       jis_;
    characters set_ = ascii;
};

class message_checker
{
public:
    // sent  an empty record
    message_checker(_s_msg const& record, _s_msg& sent, finding_proc proc, void* user)
        : record_(record), sent_(sent), found_(proc, user), body_(saved_text(record.body))
    {
        read_back();
    }

    eml_severity check()
    {
        for (header_field const& field : header_fields) {
            check_line_breaks(field);
        }
        check_encoding();
        check_from();
        check_recipients("to", sent_.to);
        check_recipients("cc", sent_.cc);
        check_subject();
        check_replyto();
        check_messageid();
        check_body();
        return found_.worst();
    }

private:
    // How many addresses have what one kind of finding is about.
    struct address_counts {
        int not_plain  = 0;
        int not_ascii  = 0;
        int incomplete = 0;
        int not_sent   = 0;
        int too_long   = 0;
    };

    // Fills sent_ as msg_load does from the file of the record. Of the body it gets only what line
    // breaks in headers add.
    void read_back()
    {
        for (header_field const& field : header_fields) {
            std::string const& value = record_.*field.text;
            if (!value.empty() || !field.left_out_when_empty) {
                take_lines(*field.key + saved_text(value), true);
            }
        }
        begun_ = !sent_.body.empty();
        take_lines(body_, false);
    }

    void take_lines(std::string const& text, bool all)
    {
        for (line_by_line lines(text); lines.next();) {
            if (all || find_header_field({lines.line(), lines.size()}) != nullptr) {
                set_msg(std::string(lines.line(), lines.size()), &sent_);
            }
        }
    }

    void check_line_breaks(header_field const& field)
    {
        std::string const& value = record_.*field.text;
        std::size_t const  lf    = value.find('\n');
        found_.at(0, field.name);
        if (lf != std::string::npos) {
            if (value.find_first_not_of("\r\n", lf) != std::string::npos) {
                found_.add(eml_severity_error,
                           "what follows its line break is read as another line of the message: "
                           "remove it");
            } else {
                found_.add(eml_severity_note, "the line break at its end is removed");
            }
        }
        if (find_lone_cr(value) != std::string::npos) {
            add_lone_cr();
        }
    }

    void add_lone_cr()
    {
        found_.add(eml_severity_warning,
                   "a CR is removed when the message is saved, and stays in a file that is posted "
                   "as it is: write LF line ends");
    }

    void check_encoding()
    {
        found_.at(0, "encoding");
        if (!is_jis() && sent_.encoding != "UTF-8") {
            found_.add(eml_severity_warning, "\"%\" counts as UTF-8: write UTF-8 or ISO-2022-JP",
                       sent_.encoding.c_str());
        }
    }

    void check_from()
    {
        found_.at(0, "from");
        if (sent_.from.empty()) {
            found_.add(eml_severity_warning,
                       "there is no sender, which servers may refuse: set one");
        }
        if (contains(sent_.from,
                     [](char c) { return is_not_ascii(c) || (is_control(c) && c != '\t'); })) {
            found_.add(eml_severity_warning,
                       "it is sent as it is, and programs may not show it: use ASCII only");
        }
        check_size(sent_.from, max_from);
    }

    void check_size(std::string const& value, std::size_t limit)
    {
        if (value.size() > limit) {
            found_.add(eml_severity_warning,
                       "it makes a line that relays may refuse: keep it within % bytes", limit);
        }
    }

    void check_recipients(char const* field, std::string const& list)
    {
        found_.at(0, field);
        std::vector<std::string> addresses;
        smtpmsg_split_address(list, addresses);
        std::size_t empty = 0;
        for (std::string const& address : addresses) {
            empty += address.empty() ? 1 : 0;
        }
        if (empty == addresses.size() && &list == &sent_.to) {
            found_.add(eml_severity_error,
                       "there is no recipient: set an address, even if there is a Cc");
        } else if (empty > 0) {
            found_.add(eml_severity_error,
                       "a recipient is empty, and servers refuse \"<>\": remove its comma");
        }
        if (has_inner_blank(list.c_str())) {
            found_.add(eml_severity_note, "the spaces inside an address are removed");
        }
        for (std::string const& address : addresses) {
            if (!address.empty()) {
                check_address(address, sizeof "rcpt to: <>\r\n" - 1, recipients_);
            }
        }
    }

    static bool has_inner_blank(char const* list)
    {
        bool blank = false;
        char last  = ',';  // before the blank
        for (; *list != '\0'; ++list) {
            if (blank && *list != ' ' && *list != ',' && last != ',') {
                return true;
            }
            blank = *list == ' ';
            last  = blank ? last : *list;
        }
        return false;
    }

    // command  bytes that go with the address on a line of its own
    // counts   of the addresses that were checked before
    void check_address(std::string const& address, std::size_t command, address_counts& counts)
    {
        std::size_t const at    = address.find('@');
        char const* const text  = address.c_str();
        std::size_t const bytes = command + address.size();
        if (contains(address, is_control) ||
            address.find_first_of(" ,;<>()") != std::string::npos) {
            add_next(counts.not_plain, eml_severity_error,
                     "\"%\" is no plain address: write user@host, without names or brackets, and "
                     "commas between recipients",
                     text);
        } else if (contains(address, is_not_ascii)) {
            add_next(counts.not_ascii, eml_severity_error,
                     "\"%\" is not ASCII, and servers refuse it: use another address", text);
        } else if (at == std::string::npos || at == 0 || at + 1 == address.size()) {
            add_next(counts.incomplete, eml_severity_warning,
                     "\"%\" is not of the form user@host: servers may refuse it", text);
        }
        if (bytes > sock_max_command) {
            add_next(counts.not_sent, eml_severity_error, "\"%\" is too long to be sent", text);
        } else if (bytes > max_command) {
            add_next(counts.too_long, eml_severity_warning,
                     "\"%\" is longer than servers have to take", text);
        }
    }

    void add_next(int& count, eml_severity severity, char const* sentence, char const* address)
    {
        if (is_next(count)) {
            found_.add(severity, sentence, address);
        }
    }

    void check_subject()
    {
        found_.at(0, "subject");
        check_size(sent_.subject, is_jis() ? max_subject_jis : max_subject_utf8);
        text_reader reader(is_jis());
        check_text(reader, sent_.subject.c_str(), sent_.subject.size(), true);
    }

    void check_text(text_reader& reader, char const* line, std::size_t size, bool last)
    {
        std::size_t const bad = reader.read(line, size);
        if (bad != 0 && is_next(invalid_)) {
            found_.add(eml_severity_error,
                       is_jis() ? "byte % is not valid in ISO-2022-JP: convert the text"
                                : "byte % is not valid in UTF-8: convert the text",
                       bad);
        }
        if (reader.is_open(last) && is_next(open_)) {
            found_.add(eml_severity_warning,
                       "it does not return to ASCII at its end: write ESC ( B there");
        }
    }

    void check_replyto()
    {
        found_.at(0, "replyto");
        if (sent_.replyto.empty()) {
            found_.add(eml_severity_warning,
                       "it is empty, so bounces are lost: set the address that is to get them");
        } else {
            address_counts alone;
            check_address(sent_.replyto, sizeof "mail from: <>\r\n" - 1, alone);
        }
    }

    void check_messageid()
    {
        std::string const& id = sent_.messageid;
        std::size_t const  at = id.find('@');
        found_.at(0, "messageid");
        if (id.empty()) {
            found_.add(eml_severity_note,
                       "there is none, and not every server adds one: set <name@host>");
        } else if (id.size() < sizeof "<x@y>" - 1 || id[0] != '<' ||
                   id.find('>') != id.size() - 1 || id.rfind('<') != 0 || at < 2 ||
                   at > id.size() - 3 || contains(id, is_no_graphic)) {
            found_.add(eml_severity_warning,
                       "it is not of the form <name@host>: programs may ignore it");
        }
        check_size(id, max_messageid);
    }

    void check_body()
    {
        line_by_line lines(body_);
        text_reader  reader(is_jis());
        int          number   = 0;
        int          keys     = 0;  // lines that begin with one
        int          too_long = 0;
        bool         lost     = false;
        int const    cr_line  = line_of_lone_cr();
        invalid_ = open_ = 0;
        do {
            bool const is_line = lines.next();
            found_.at(++number, "body");
            if (number == cr_line) {
                add_lone_cr();
            }
            if (!is_line) {
                return;
            }
            if (header_field const* const field = find_header_field({lines.line(), lines.size()})) {
                if (is_next(keys)) {
                    found_.add(eml_severity_error,
                               "it begins with \"%\", is taken as that header and is missing from "
                               "the body: indent it",
                               *field->key);
                }
                continue;
            }
            begun_ = begun_ || lines.size() > 0;
            if (!begun_ && !lost) {
                lost = true;
                found_.add(eml_severity_warning,
                           "empty lines before the first text are lost: begin with a space");
            }
            if (is_jis() && lines.size() > max_line && is_next(too_long)) {
                found_.add(eml_severity_warning,
                           "it is a line that relays may refuse: break it after 998 bytes at most");
            }
            check_text(reader, lines.line(), lines.size(), lines.is_last());
        } while (!lines.is_last());
    }

    // The line of the body, or 0.
    int line_of_lone_cr() const
    {
        std::size_t const cr = find_lone_cr(record_.body);
        if (cr == std::string::npos) {
            return 0;
        }
        char const* const body = record_.body.c_str();
        return 1 + static_cast<int>(std::count(body, body + cr, '\n'));
    }

    static bool is_next(int& count) { return count++ < most_named; }

    bool is_jis() const { return sent_.encoding == "ISO-2022-JP"; }

    _s_msg const&     record_;
    _s_msg&           sent_;  // as it is read back from its file
    findings          found_;
    std::string const body_;             // as it is in the file
    bool              begun_   = false;  // whether sent_ has a body before that of the record
    int               invalid_ = 0;      // lines
    int               open_    = 0;
    address_counts    recipients_;
};

}  // namespace

int msg_check(void* msg, finding_proc proc, void* user)
{
    if (msg == nullptr || proc == nullptr) {
        return -1;
    }
    void* made = nullptr;
    if (msg_create(&made) != 0) {
        return -1;
    }
    message_holder const sent(made);
    return message_checker(*static_cast<_s_msg const*>(msg), *static_cast<_s_msg*>(made), proc,
                           user)
        .check();
}

}  // namespace zelieml
