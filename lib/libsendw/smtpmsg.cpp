// smtpmsg.cpp - the text of a mail (RFC 5322) in MIME (RFC 2045 to 2047)

#include "libsendw/smtpmsg.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>
#include <new>
#include <utility>

#include "libbase64/libbase64.h"
#include "libconfw/libconfw.h"
#include "liblog/trace.h"
#include "libmsg/libmsg.h"
#include "libtimew/libtimew.h"
#include "support/heap.h"
#include "support/line_breaks.h"

namespace zelieml
{

namespace
{

// What differs between the forms of a mail.
struct mail_form {
    std::string (*encoded_subject)(std::string const& subject);
    std::string (*content_type)();
    std::string (*content_transfer_encoding)();
    int (*body)(void* msg, std::vector<std::string>& out);
};

constexpr mail_form utf8_form = {get_subject_utf8_base64, get_content_type_utf8,
                                 get_content_transfer_encoding_base64, msg_body_utf8};
constexpr mail_form jis_form  = {get_subject_jis_base64, get_content_type_jis,
                                 get_content_transfer_encoding_7bit, msg_body_jis};

// Of a body that is composed piece by piece; whole lines.
constexpr std::size_t piece_size = std::size_t{57} * 1024;

bool is_jis(std::string const& encoding)
{
    return encoding == "ISO-2022-JP";
}

conf_settings read_settings(char const* path)
{
    return confw_read(path, {key_subject_use_encoding});
}

bool use_encoding(conf_settings const& conf)
{
    char         value[1024];
    unsigned int length = sizeof value;
    if (confw_get_string(key_subject_use_encoding, value, &length, conf) != 0) {
        trace_msg("error:conf_get_string %s");
        return true;
    }
    return std::strcmp(value, "yes") == 0;
}

// Calls use with the record, or with an empty one for a null handle. Returns what it returns.
template <class Use>
auto with_record(void* msg, Use&& use)
{
    return msg != nullptr ? use(*static_cast<_s_msg const*>(msg)) : use(_s_msg());
}

int header(void* msg, std::vector<std::string>& out, conf_settings const& conf,
           mail_form const& form)
{
    return with_record(msg, [&](_s_msg const& record) {
        out.reserve(out.size() + 13);  // ten header lines, the empty line, the body, the end mark
        out.push_back(get_date());
        out.push_back(get_from(record.from));
        out.push_back(get_to(record.to));
        if (!record.cc.empty()) {
            out.push_back(get_cc(record.cc));
        }
        out.push_back(use_encoding(conf) ? form.encoded_subject(record.subject)
                                         : get_subject_no_encoding(record.subject));
        out.push_back(get_replyto(record.replyto));
        out.push_back(get_mime_version());
        out.push_back(form.content_type());
        out.push_back(form.content_transfer_encoding());
        if (!record.messageid.empty()) {
            out.push_back(get_messageid(record.messageid));
        }
        return 0;
    });
}

int create(void* msg, std::vector<std::string>& out, conf_settings const& conf,
           mail_form const& form)
{
    out.clear();
    // The steps of both forms return 0 always; the checks are for a form whose steps can fail.
    if (header(msg, out, conf, form) != 0) {
        trace_msg("error:msg_header");
        return -1;
    }
    out.push_back(get_crlf());
    if (form.body(msg, out) != 0) {
        trace_msg("error:msg_body");
        return -1;
    }
    return 0;
}

// One header line.
std::string header_line(char const* label, std::string const& text)
{
    std::string line;
    line.reserve(std::strlen(label) + text.size() + 2);
    line += label;
    line += text;
    line += "\r\n";
    return line;
}

// One encoded word on one line, whatever its length: deliberate, see docs/ODDITIES.md.
std::string encoded_subject(char const* start, std::string const& base64)
{
    return header_line(start, base64 + "?=");
}

std::string address_header(std::string const& list, char const* label)
{
    std::vector<std::string> addresses;
    if (smtpmsg_split_address(list, addresses) != 0) {
        trace_msg("error:smtpmsg_split_address");
        return {};
    }
    return get_multiline(addresses, label);
}

}  // namespace

int smtpmsg_create_multiline(void* msg, std::vector<std::string>& out, char const* conf)
{
    return smtpmsg_create_multiline(msg, out, read_settings(conf));
}

int smtpmsg_create_multiline(void* msg, std::vector<std::string>& out, conf_settings const& conf)
{
    std::string const encoding = msg_get_encoding(msg);
    modify_body(msg);
    if (is_jis(encoding)) {
        trace_msg("encoding: IOS-2022-JP");  // deliberate, see docs/ODDITIES.md
        return create(msg, out, conf, jis_form);
    }
    trace_msg("encoding: UTF-8");
    return create(msg, out, conf, utf8_form);
}

int smtpmsg_create_utf8_multiline(void* msg, std::vector<std::string>& out, char const* conf)
{
    return create(msg, out, read_settings(conf), utf8_form);
}

int smtpmsg_create_jis_multiline(void* msg, std::vector<std::string>& out, char const* conf)
{
    return create(msg, out, read_settings(conf), jis_form);
}

bool mail_text::takes(void* msg, message_body const& body)
{
    constexpr std::int64_t most = std::numeric_limits<int>::max() / 2;
    return body.most() <= (is_jis(msg_get_encoding(msg)) ? most / 2 : most);  // dots may double it
}

int mail_text::begin(void* msg, message_body& body, std::vector<std::string>& out,
                     conf_settings const& conf)
{
    body_ = &body;
    done_ = false;
    jis_  = is_jis(msg_get_encoding(msg));
    bytes_.reset(new char[piece_size + 1]);  // with the CR before it
    return smtpmsg_create_multiline(msg, out, conf);
}

bool mail_text::next(std::string& piece)
{
    std::size_t size = 0;
    if (!body_->read(bytes_.get() + held_, piece_size, size)) {
        return false;
    }
    done_ = size < piece_size;
    if (jis_) {
        convert(piece, held_ + size);
    } else {
        encode(piece, size);
    }
    started_ = true;
    return true;
}

void mail_text::encode(std::string& piece, std::size_t size)
{
    auto const* const bytes = reinterpret_cast<unsigned char const*>(bytes_.get());
    if (base64_encode(bytes, static_cast<int>(size), true, piece)) {
        return;
    }
    if (started_) {
        throw std::bad_alloc();  // the first piece was no shorter
    }
    // Without memory for its beginning the whole body is left out: deliberate, see docs/ODDITIES.md.
    trace_msg("error:base64_encode");
    done_ = true;
}

void mail_text::convert(std::string& piece, std::size_t size)
{
    if (!started_) {
        try {
            piece.reserve(2 * (piece_size + 1));
            converts_ = true;
        } catch (std::exception const&) {
            converts_ = false;  // sent unchanged: deliberate, see docs/ODDITIES.md
        }
    }
    if (!converts_) {
        piece.assign(bytes_.get(), size);
        return;
    }
    held_ = !done_ && bytes_[size - 1] == '\r' ? 1 : 0;
    converted_.go_on({bytes_.get(), size - held_});
    piece.resize(2 * size);
    piece.resize(converted_.next(&piece[0], piece.size()));
    bytes_[0] = '\r';  // if it is held
}

int smtpmsg_split_address(std::string const& list, std::vector<std::string>& out)
{
    out.clear();
    if (list.empty()) {
        trace_msg("error:no address");
        return -1;
    }
    std::size_t start = 0;
    for (;;) {
        std::size_t const comma = list.find(',', start);
        out.push_back(eliminate_space(list.substr(start, comma - start)));
        if (comma == std::string::npos) {
            return 0;
        }
        start = comma + 1;
    }
}

std::string eliminate_space(std::string const& text)
{
    std::string rest = text;
    rest.erase(std::remove(rest.begin(), rest.end(), ' '), rest.end());
    return rest;
}

int msg_header_utf8(void* msg, std::vector<std::string>& out, char const* conf)
{
    return header(msg, out, read_settings(conf), utf8_form);
}

int msg_header_jis(void* msg, std::vector<std::string>& out, char const* conf)
{
    return header(msg, out, read_settings(conf), jis_form);
}

int msg_body_utf8(void* msg, std::vector<std::string>& out)
{
    return with_record(msg, [&](_s_msg const& record) {
        out.push_back(_base64(record.body, true));  // _utf8 would copy it, and change nothing
        return 0;
    });
}

int msg_body_jis(void* msg, std::vector<std::string>& out)
{
    return with_record(msg, [&](_s_msg const& record) {
        out.push_back(_jis(record.body));
        return 0;
    });
}

void modify_body(void* msg)
{
    // A UTF-8 body is sent in Base64 and needs neither.
    if (!is_jis(msg_get_encoding(msg))) {
        return;
    }
    std::string&          body         = static_cast<_s_msg*>(msg)->body;
    constexpr std::size_t max_capacity = std::numeric_limits<int>::max();
    if (*body.c_str() == '\0' || body.size() > max_capacity / 2 - 1) {
        return;
    }

    std::string modified;
    if (text_with_crlf(body.c_str(), std::strlen(body.c_str()), opening_dot::doubled, modified) &&
        modified.size() <= max_capacity / 2) {
        body = std::move(modified);
    }
}

int modify_body_data(char const* in, char* out, int* size)
{
    if (in != nullptr && *in == '\0') {
        return -1;  // out is not even cleared, unlike in modify_line_feed
    }
    return copy_with_crlf(in, out, size, opening_dot::doubled);
}

bool subject_use_encoding(char const* conf)
{
    return use_encoding(read_settings(conf));
}

std::string get_multiline(std::vector<std::string> const& addresses, char const* label)
{
    std::string text = label;
    int         left = static_cast<int>(addresses.size());
    for (std::string const& address : addresses) {
        text += ' ';
        text += address;
        text += _next(left);
        text += get_crlf();
        --left;
    }
    return text;
}

std::string _next(int count)
{
    return count >= 2 ? "," : "";
}

std::string _base64(std::string const& text, bool line_breaks)
{
    constexpr std::size_t max_length = std::numeric_limits<int>::max();
    auto const* const     bytes      = reinterpret_cast<unsigned char const*>(text.data());
    std::string           encoded;
    if (text.size() > max_length ||
        !base64_encode(bytes, static_cast<int>(text.size()), line_breaks, encoded)) {
        trace_msg("error:base64_encode");  // sent without it: deliberate, see docs/ODDITIES.md
    }
    return encoded;
}

std::string _utf8(std::string text)
{
    return text;
}

std::string _jis(std::string text)
{
    return text;
}

std::string _utf8_base64(std::string text, bool line_breaks)
{
    return _base64(_utf8(std::move(text)), line_breaks);
}

std::string _jis_base64(std::string text, bool line_breaks)
{
    return _base64(_jis(std::move(text)), line_breaks);
}

std::string get_date()
{
    return header_line("Date: ", itimew().get_format_date());
}

std::string get_from(std::string const& from)
{
    return header_line("From: ", from);
}

std::string get_to(std::string const& to)
{
    return address_header(to, "To:");
}

std::string get_cc(std::string const& cc)
{
    return address_header(cc, "Cc:");
}

std::string get_subject_no_encoding(std::string const& subject)
{
    return header_line("Subject: ", subject);
}

std::string get_subject_utf8_base64(std::string const& subject)
{
    return encoded_subject("Subject: =?UTF-8?B?", _utf8_base64(subject, false));
}

std::string get_subject_jis_base64(std::string const& subject)
{
    return encoded_subject("Subject: =?ISO-2022-JP?B?", _jis_base64(subject, false));
}

std::string get_replyto(std::string const& replyto)
{
    return header_line("Reply-To: ", replyto);
}

std::string get_mime_version()
{
    return "Mime-Version: 1.0\r\n";
}

std::string get_content_type_utf8()
{
    return "Content-Type: text/plain; charset=\"UTF-8\"\r\n";
}

std::string get_content_type_jis()
{
    return "Content-Type: text/plain; charset=\"ISO-2022-JP\"\r\n";
}

std::string get_content_transfer_encoding_base64()
{
    return "Content-Transfer-Encoding: base64\r\n";
}

std::string get_content_transfer_encoding_7bit()
{
    return "Content-Transfer-Encoding: 7bit\r\n";
}

std::string get_messageid(std::string const& messageid)
{
    return header_line("Message-Id: ", messageid);
}

std::string get_crlf()
{
    return "\r\n";
}

}  // namespace zelieml
