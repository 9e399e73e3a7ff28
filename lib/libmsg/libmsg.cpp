// libmsg.cpp - the message record and its file

#include "libmsg/libmsg.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "liblog/trace.h"
#include "libmsg/load_message.h"
#include "libmsg/message_lines.h"
#include "support/format.h"
#include "support/heap.h"
#include "support/line_breaks.h"
#include "support/no_cancellation.h"

// The blank at the end belongs to the key.
char const* KeyFrom      = "from: ";
char const* KeyTo        = "to: ";
char const* KeyCc        = "cc: ";
char const* KeySubject   = "subject: ";
char const* KeyReplyTo   = "replyto: ";
char const* KeyEncoding  = "encoding: ";
char const* KeyMessageID = "messageid: ";
char const* ValCharLf    = "\n";
char const* ValCharCrLf  = "\r\n";

namespace zelieml
{

header_field const header_fields[7] = {
    {&KeyEncoding, &_s_msg::encoding, "encoding", false},
    {&KeyFrom, &_s_msg::from, "from", false},
    {&KeyTo, &_s_msg::to, "to", false},
    {&KeyCc, &_s_msg::cc, "cc", true},
    {&KeySubject, &_s_msg::subject, "subject", false},
    {&KeyReplyTo, &_s_msg::replyto, "replyto", false},
    {&KeyMessageID, &_s_msg::messageid, "messageid", true},
};

namespace
{

using text_member = std::string _s_msg::*;

int set_text(void* msg, text_member member, char const* text)
{
    if (msg == nullptr || text == nullptr) {
        return -1;
    }
    static_cast<_s_msg*>(msg)->*member = text;
    return 0;
}

int copy_text(void* msg, text_member member, char* buf, int size)
{
    return msg != nullptr ? copy_to_caller(static_cast<_s_msg*>(msg)->*member, buf, size) : -1;
}

std::string text_of(void* msg, text_member member)
{
    return msg != nullptr ? static_cast<_s_msg*>(msg)->*member : std::string();
}

bool begins_with(std::string_view line, char const* key)
{
    for (std::size_t i = 0; key[i] != '\0'; ++i) {
        if (i == line.size() || line[i] != key[i]) {
            return false;
        }
    }
    return true;
}

// set_dat for a line that is as long as the key at least.
void set_value(std::string_view line, std::size_t skipped, std::string& field)
{
    std::string_view const value = line.substr(skipped);
    field.assign(value, 0, value.find('\0'));
}

// A message file being written. Its buffer is on the stack, where it is cheaper than on the heap:
// messages are short. After a failure nothing more is written.
class file_writer
{
public:
    explicit file_writer(message_file& file) : file_(file), good_(file) {}

    bool good() const { return good_; }

    void put(char const* data, std::size_t size)
    {
        if (size > sizeof bytes_ - used_) {
            flush();
            good_ = good_ && file_.write(data, size);
        } else {
            std::memcpy(bytes_ + used_, data, size);
            used_ += size;
        }
    }

    void flush()
    {
        good_ = good_ && file_.write(bytes_, used_);
        used_ = 0;
    }

private:
    message_file& file_;
    bool          good_;
    std::size_t   used_ = 0;
    char          bytes_[4096];
};

// write_key_dat, to whatever put writes to.
template <class Put>
int put_key_dat(char const* key, std::string const& value, bool add_lf, Put&& put)
{
    if (key == nullptr) {
        return -1;
    }
    std::size_t const       key_length   = std::strlen(key);
    std::size_t const       value_length = std::strlen(value.c_str());
    heap_buffer<char> const line         = heap_array<char>(key_length + value_length + 1);
    if (!line) {
        trace_msg("error:malloc");
        return -1;
    }
    std::memcpy(line.get(), key, key_length);
    std::memcpy(line.get() + key_length, value.c_str(), value_length + 1);
    remove_r(line.get());

    put(line.get(), std::strlen(line.get()));
    if (add_lf) {
        put(ValCharLf, std::strlen(ValCharLf));
    }
    return 0;
}

// Copies a text without any CR into a buffer that is as large. Returns the number of bytes.
std::size_t copy_without_cr(std::string_view text, char* out)
{
    std::size_t count = 0;
    for (;;) {
        std::size_t const size = std::min(text.find('\r'), text.size());
        copy_short(out + count, text.size(), text, size);
        count += size;
        if (size == text.size()) {
            return count;
        }
        text.remove_prefix(size + 1);
    }
}

// put_key_dat for the body. A long one is written piece by piece, so that there is no copy of it.
template <class Put>
void put_body(std::string const& body, Put&& put)
{
    constexpr std::size_t piece_size = 262144;  // the system writes less quickly in smaller ones
    if (body.size() <= piece_size) {
        put_key_dat("", body, false, put);
        return;
    }
    heap_buffer<char> const piece = heap_array<char>(piece_size);
    if (!piece) {
        trace_msg("error:malloc");  // left out
        return;
    }
    for (std::string_view left = body; !left.empty();) {
        std::string_view const next = left.substr(0, piece_size);
        std::size_t const      size = std::min(next.find('\0'), next.size());
        put(piece.get(), copy_without_cr(next.substr(0, size), piece.get()));
        left.remove_prefix(size == next.size() ? size : left.size());
    }
}

// Cuts the body at a NUL, which ends it like every other value.
void end_body(_s_msg& msg)
{
    msg.body.resize(std::strlen(msg.body.c_str()));
}

// Reserves memory for the body of a file of this size. Only a hint: the body may be much smaller.
void expect_body(_s_msg& msg, std::int64_t size)
{
    if (static_cast<std::uint64_t>(size) > msg.body.max_size() / 2) {
        return;
    }
    try {
        auto const bytes = static_cast<std::size_t>(size);
        msg.body.reserve(bytes + bytes / 16);  // LF becomes CR LF
    } catch (std::exception const&) {
        // it grows step by step instead
    }
}

// read_msg without a stream. Returns false when the file cannot be read.
bool read_file(message_file const& file, _s_msg& msg)
{
    char          piece[16384];
    message_lines lines(file, piece, sizeof piece);
    expect_body(msg, file.size());
    for (message_part part; lines.next(part);) {
        if (part.header != nullptr) {
            set_header(part, msg);
            continue;
        }
        for (char const c : part.joint) {
            msg.body += c;  // quicker than to append so few together
        }
        msg.body += part.text;
    }
    return !lines.failed();
}

}  // namespace

int msg_create(void** msg)
{
    if (msg == nullptr) {
        return -1;
    }
    *msg = new (std::nothrow) _s_msg;
    return msg_init(*msg);
}

int msg_init(void* msg)
{
    if (msg == nullptr) {
        return -1;
    }
    _s_msg& record = *static_cast<_s_msg*>(msg);
    record.from.clear();
    record.to.clear();
    record.cc.clear();
    record.subject.clear();
    record.replyto.clear();
    record.messageid.clear();
    record.body.clear();
    record.encoding = get_encoding_str(eml_encoding_utf8);
    return 0;
}

int msg_destroy(void* msg)
{
    delete static_cast<_s_msg*>(msg);
    return 0;
}

int msg_set_from(void* msg, char const* text)
{
    return set_text(msg, &_s_msg::from, text);
}

int msg_set_to(void* msg, char const* text)
{
    return set_text(msg, &_s_msg::to, text);
}

int msg_set_cc(void* msg, char const* text)
{
    return set_text(msg, &_s_msg::cc, text);
}

int msg_set_subject(void* msg, char const* text)
{
    return set_text(msg, &_s_msg::subject, text);
}

int msg_set_replyto(void* msg, char const* text)
{
    return set_text(msg, &_s_msg::replyto, text);
}

int msg_set_messageid(void* msg, char const* text)
{
    return set_text(msg, &_s_msg::messageid, text);
}

int msg_set_body(void* msg, char const* text)
{
    if (msg == nullptr || text == nullptr) {
        return -1;
    }
    std::size_t const length = std::strlen(text);
    if (length > std::numeric_limits<int>::max() / 2) {
        return -1;
    }

    std::string& body = static_cast<_s_msg*>(msg)->body;
    std::string  converted;
    // A body of nothing but lone line breaks is stored unchanged: deliberate, see docs/ODDITIES.md.
    if (text_with_crlf(text, length, opening_dot::kept, converted) &&
        converted.size() < 2 * length) {
        body = std::move(converted);
    } else {
        body.assign(text, length);
    }
    return 0;
}

int msg_set_encoding(void* msg, eml_encoding enc)
{
    return set_text(msg, &_s_msg::encoding, get_encoding_str(enc));
}

char const* get_encoding_str(eml_encoding enc)
{
    return enc == eml_encoding_iso2022jp ? "ISO-2022-JP" : "UTF-8";
}

int modify_line_feed(char const* in, char* out, int* size)
{
    return copy_with_crlf(in, out, size, opening_dot::kept);
}

int msg_get_from(void* msg, char* buf, int size)
{
    return copy_text(msg, &_s_msg::from, buf, size);
}

int msg_get_to(void* msg, char* buf, int size)
{
    return copy_text(msg, &_s_msg::to, buf, size);
}

int msg_get_cc(void* msg, char* buf, int size)
{
    return copy_text(msg, &_s_msg::cc, buf, size);
}

int msg_get_subject(void* msg, char* buf, int size)
{
    return copy_text(msg, &_s_msg::subject, buf, size);
}

int msg_get_replyto(void* msg, char* buf, int size)
{
    return copy_text(msg, &_s_msg::replyto, buf, size);
}

int msg_get_encoding(void* msg, char* buf, int size)
{
    return copy_text(msg, &_s_msg::encoding, buf, size);
}

int msg_get_messageid(void* msg, char* buf, int size)
{
    return copy_text(msg, &_s_msg::messageid, buf, size);
}

int msg_get_body(void* msg, char* buf, int size)
{
    return copy_text(msg, &_s_msg::body, buf, size);
}

std::string msg_get_from(void* msg)
{
    return text_of(msg, &_s_msg::from);
}

std::string msg_get_to(void* msg)
{
    return text_of(msg, &_s_msg::to);
}

std::string msg_get_cc(void* msg)
{
    return text_of(msg, &_s_msg::cc);
}

std::string msg_get_subject(void* msg)
{
    return text_of(msg, &_s_msg::subject);
}

std::string msg_get_replyto(void* msg)
{
    return text_of(msg, &_s_msg::replyto);
}

std::string msg_get_encoding(void* msg)
{
    return text_of(msg, &_s_msg::encoding);
}

std::string msg_get_messageid(void* msg)
{
    return text_of(msg, &_s_msg::messageid);
}

std::string msg_get_body(void* msg)
{
    return text_of(msg, &_s_msg::body);
}

bool msg_cc_exist(void* msg)
{
    return msg != nullptr && !static_cast<_s_msg*>(msg)->cc.empty();
}

bool msg_messageid_exist(void* msg)
{
    return msg != nullptr && !static_cast<_s_msg*>(msg)->messageid.empty();
}

int msg_save(void* msg, char const* path)
{
    message_file file = msg != nullptr ? overwrite_message_file(path) : message_file();
    return msg_write(msg, file) == 0 ? msg_close(file) : -1;
}

int msg_close(message_file& file)
{
    if (!file.close()) {
        trace_msg("error:ofstream(%s)");
        return -1;
    }
    return 0;
}

int msg_write(void* msg, message_file& file)
{
    if (msg == nullptr) {
        trace_msg("error:msg_save msg==0");
        return -1;
    }
    _s_msg const&         record = *static_cast<_s_msg*>(msg);
    no_cancellation const shielded;
    file_writer           out(file);
    auto const            put = [&](char const* data, std::size_t size) { out.put(data, size); };
    for (header_field const& field : header_fields) {
        std::string const& text = record.*field.text;
        if (out.good() && (!text.empty() || !field.left_out_when_empty)) {
            put_key_dat(*field.key, text, true, put);
        }
    }
    if (out.good()) {
        put_body(record.body, put);
    }
    out.flush();
    if (!out.good()) {
        trace_msg("error:ofstream(%s)");
        return -1;
    }
    return 0;
}

int msg_load(void** msg, char const* path)
{
    return msg_load(msg, follow_message_file(path));
}

int msg_load(void** msg, message_file const& file)
{
    return load_message(msg, file, [&](_s_msg& record) { return read_file(file, record); });
}

int write_key_dat(std::ofstream& out, char const* key, std::string& value, bool add_lf)
{
    return put_key_dat(key, value, add_lf, [&](char const* data, std::size_t size) {
        out.write(data, static_cast<std::streamsize>(size));
    });
}

void remove_r(char* text)
{
    char* const first = text != nullptr ? std::strchr(text, '\r') : nullptr;
    if (first == nullptr) {
        return;
    }
    std::size_t const       length  = std::strlen(first);
    heap_buffer<char> const scratch = heap_array<char>(length);
    if (!scratch) {
        trace_msg("error:malloc");
        return;
    }

    std::size_t const count = copy_without_cr({first, length}, scratch.get());
    std::memcpy(first, scratch.get(), count);
    first[count] = '\0';
}

int read_msg(std::ifstream& in, _s_msg* msg)
{
    if (msg == nullptr) {
        return -1;
    }
    // After a final LF one more, empty line is read: it restores the line break at the end of a
    // body.
    std::string line;
    while (in.good()) {
        std::getline(in, line);
        if (!in.bad()) {
            set_msg(line, msg);
        }
    }
    end_body(*msg);
    return 0;
}

int set_msg(std::string const& line, _s_msg* msg)
{
    if (msg == nullptr) {
        return -1;
    }
    if (header_field const* const field = find_header_field(line)) {
        set_value(line, std::strlen(*field->key), msg->*field->text);
        return 0;
    }
    if (!msg->body.empty()) {
        msg->body += ValCharCrLf;
    }
    msg->body += line;
    return 0;
}

header_field const* find_header_field(std::string_view line)
{
    for (header_field const& field : header_fields) {
        if (begins_with(line, *field.key)) {
            return &field;
        }
    }
    return nullptr;
}

int set_dat(std::string const& line, char const* key, std::string& field)
{
    std::size_t const skipped = key != nullptr ? std::strlen(key) : line.size() + 1;
    if (skipped > line.size()) {
        return -1;
    }
    set_value(line, skipped, field);
    return 0;
}

}  // namespace zelieml
