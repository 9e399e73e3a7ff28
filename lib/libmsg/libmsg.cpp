// libmsg.cpp - the message record and its file

#include "libmsg/libmsg.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "liblog/trace.h"
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

namespace
{

using text_member = std::string _s_msg::*;

struct header_field {
    char const* const* key;
    text_member        text;
    bool               left_out_when_empty;
};

// In the order in which lines are written, and in which a line that is read is compared with the
// keys.
header_field const header_fields[] = {
    {&KeyEncoding, &_s_msg::encoding, false},
    {&KeyFrom, &_s_msg::from, false},
    {&KeyTo, &_s_msg::to, false},
    {&KeyCc, &_s_msg::cc, true},
    {&KeySubject, &_s_msg::subject, false},
    {&KeyReplyTo, &_s_msg::replyto, false},
    {&KeyMessageID, &_s_msg::messageid, true},
};

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

bool begins_with(char const* text, char const* key)
{
    for (; *key != '\0'; ++text, ++key) {
        if (*text != *key) {
            return false;
        }
    }
    return true;
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

// Cuts the body at a NUL, which ends it like every other value.
void end_body(_s_msg& msg)
{
    msg.body.resize(std::strlen(msg.body.c_str()));
}

// Sets the lines that end in a piece of the file. What is left stays in line, which contains the
// beginning of the first one.
void set_lines(std::string& line, char const* piece, std::size_t size, _s_msg& msg)
{
    while (void const* const lf = std::memchr(piece, '\n', size)) {
        auto const length = static_cast<std::size_t>(static_cast<char const*>(lf) - piece);
        line.append(piece, length);
        set_msg(line, &msg);
        line.clear();
        piece += length + 1;
        size -= length + 1;
    }
    line.append(piece, size);
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
    char         piece[4096];
    std::string  line;
    std::int64_t position = 0;
    expect_body(msg, file.size());
    for (bool complete = false; !complete;) {
        std::int64_t const count = file.read(piece, sizeof piece, position);
        if (count < 0) {
            return false;
        }
        auto const taken = static_cast<std::size_t>(count);
        position += count;
        // A short read need not be the last one, and the file may have grown.
        complete = taken == 0 || (taken < sizeof piece && position >= file.size());
        set_lines(line, piece, taken, msg);
    }
    set_msg(line, &msg);  // after a final LF an empty one, as in read_msg
    end_body(msg);
    return true;
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
        put_key_dat("", record.body, false, put);
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
    if (msg_create(msg) != 0) {
        return -1;
    }
    no_cancellation const shielded;
    bool                  loaded = false;
    try {
        loaded = file && read_file(file, *static_cast<_s_msg*>(*msg));
    } catch (std::exception const&) {
        // no memory: traced below, like a file that cannot be read
    }
    if (!loaded) {
        trace_msg("error:ifstream(%s)");
        return -1;
    }
    return 0;
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

    char const* const end   = first + length;
    std::size_t       count = 0;
    for (char const* run = first; run < end;) {
        std::size_t const left = static_cast<std::size_t>(end - run);
        void const* const cr   = std::memchr(run, '\r', left);
        std::size_t const size =
            cr != nullptr ? static_cast<std::size_t>(static_cast<char const*>(cr) - run) : left;
        std::memcpy(scratch.get() + count, run, size);
        count += size;
        run += size + 1;
    }
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
    for (header_field const& field : header_fields) {
        if (begins_with(line.c_str(), *field.key)) {
            return set_dat(line, *field.key, msg->*field.text);
        }
    }
    if (!msg->body.empty()) {
        msg->body += ValCharCrLf;
    }
    msg->body += line;
    return 0;
}

int set_dat(std::string const& line, char const* key, std::string& field)
{
    std::size_t const skipped = key != nullptr ? std::strlen(key) : line.size() + 1;
    if (skipped > line.size()) {
        return -1;
    }
    field = line.c_str() + skipped;
    return 0;
}

}  // namespace zelieml
