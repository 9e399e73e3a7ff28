// libmsg.h - the message record and its file
//
// A message is eight strings. Code outside this unit holds it as a void* handle, made by msg_create
// or msg_load and freed with msg_destroy; whoever holds the handle owns the record. Strings are
// stored exactly as given: nothing is trimmed, no address is checked.
//
// On disk (".sme") a message is plain bytes with LF line ends: a line for each field, made of its
// key and its value, then the body. No lengths, no quoting, no version. A line that begins with a
// key is that field wherever it stands, even in the middle of the body.
//
// Unless a function says otherwise, a null handle, string or buffer is a failure (-1) with nothing
// changed, and lack of memory for a copy is thrown as std::bad_alloc with the record unchanged.
//
// Threads: any, but only one at a time for one record.

#ifndef ZELIEML_LIBMSG_LIBMSG_H
#define ZELIEML_LIBMSG_LIBMSG_H

#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "libmsg/message_file.h"
#include "zelieml.h"

namespace zelieml
{

struct _s_msg {
    std::string from;
    std::string to;
    std::string cc;  // empty: no Cc header
    std::string subject;
    std::string replyto;
    std::string body;       // with CR LF line ends after msg_set_body
    std::string encoding;   // "UTF-8", "ISO-2022-JP", or whatever a file contained
    std::string messageid;  // empty: no Message-Id header
};

// What a header line of a message file contains.
struct header_field {
    char const* const* key;
    std::string _s_msg::*text;
    char                 name[10];  // the key without ": "
    bool                 left_out_when_empty;
};

// In the order in which lines are written, and in which a line that is read is compared with the
// keys.
extern header_field const header_fields[7];

// msg_create - make an empty record
//
// msg  receives the handle, which the caller frees with msg_destroy
//
// Returns 0, or -1 when there is no memory.
int msg_create(void** msg);

// msg_init - make every string empty, and the encoding "UTF-8"
int msg_init(void* msg);

// msg_destroy - free a record. Null is accepted. Returns 0.
int msg_destroy(void* msg);

struct message_deleter {
    void operator()(void* msg) const { msg_destroy(msg); }
};

// A message record that frees itself.
using message_holder = std::unique_ptr<void, message_deleter>;

// msg_set_... - replace a string of the record by a copy of text
int msg_set_from(void* msg, char const* text);
int msg_set_to(void* msg, char const* text);
int msg_set_cc(void* msg, char const* text);
int msg_set_subject(void* msg, char const* text);
int msg_set_replyto(void* msg, char const* text);
int msg_set_messageid(void* msg, char const* text);

// msg_set_body - replace the body by text, with CR LF line ends
//
// The empty string and a string of nothing but lone line breaks are stored unchanged ("\n" stays
// "\n"), as is any string that there is no memory to convert.
//
// Returns 0, or -1 when twice the length of text does not fit an int.
int msg_set_body(void* msg, char const* text);

// msg_set_encoding - set the encoding to get_encoding_str(enc)
int msg_set_encoding(void* msg, eml_encoding enc);

// get_encoding_str - "UTF-8" or "ISO-2022-JP"; "UTF-8" for a value outside eml_encoding
char const* get_encoding_str(eml_encoding enc);

// modify_line_feed - make every line break CR LF: a lone CR, a lone LF, and CR LF itself
//
// in    string, not empty
// out   receives the result and its NUL; all *size bytes are cleared first
// size  in: bytes at out, the NUL included; out: length of the result
//
// Returns 0, or -1 when in is empty or the result and its NUL do not fit. Then *size is unchanged
// and the content of out is undefined.
int modify_line_feed(char const* in, char* out, int* size);

// msg_get_... - copy a string and its NUL into buf of size bytes
//
// Returns 0, or -1, leaving buf unchanged, when they do not fit.
int msg_get_from(void* msg, char* buf, int size);
int msg_get_to(void* msg, char* buf, int size);
int msg_get_cc(void* msg, char* buf, int size);
int msg_get_subject(void* msg, char* buf, int size);
int msg_get_replyto(void* msg, char* buf, int size);
int msg_get_encoding(void* msg, char* buf, int size);
int msg_get_messageid(void* msg, char* buf, int size);
int msg_get_body(void* msg, char* buf, int size);

// msg_get_... - a copy of a string; "" for a null handle
std::string msg_get_from(void* msg);
std::string msg_get_to(void* msg);
std::string msg_get_cc(void* msg);
std::string msg_get_subject(void* msg);
std::string msg_get_replyto(void* msg);
std::string msg_get_encoding(void* msg);
std::string msg_get_messageid(void* msg);
std::string msg_get_body(void* msg);

// msg_cc_exist, msg_messageid_exist - true when the string is not empty; false for a null handle
bool msg_cc_exist(void* msg);
bool msg_messageid_exist(void* msg);

// msg_save - write a record to a file, which is created or replaced
//
// path  its directory must exist. A new file gets mode 0666 less the umask.
//
// Every CR is removed, so the CR LF of the body becomes LF. A field that there is no memory for is
// left out, which is not a failure. Throws nothing.
//
// Returns 0. Returns -1 when the file cannot be opened, or when writing or closing it fails, for
// example on a full disk; what was written by then is left on disk.
int msg_save(void* msg, char const* path);

// msg_write, msg_close - the same in two steps, for an open and empty file
//
// file  no file counts as one that cannot be opened
//
// Without msg_close the file can be read, and what only closing reports stays unknown.
int msg_write(void* msg, message_file& file);
int msg_close(message_file& file);

// msg_load - make a record from a file
//
// msg  receives a new record, which the caller frees with msg_destroy, also after a failure
//
// A field that has no line keeps the value of a new record. Empty lines at the start of the body
// are lost. A NUL ends the value that contains it. Throws nothing.
//
// Returns 0. Returns -1 when there is no memory for a record (*msg is then null), when the file
// cannot be opened or read, or when it is not a regular file: pipes and devices, which may never
// end, are not read.
int msg_load(void** msg, char const* path);

// msg_load - the same, from an open file, from its beginning
//
// file  no file counts as one that cannot be opened
//
// A file that cannot be read, and lack of memory, come with errno.
int msg_load(void** msg, message_file const& file);

// msg_read_back - fill a new record with what msg_load reads from the file that msg_save writes
//
// There is no file. Throws std::bad_alloc when there is no memory.
void msg_read_back(_s_msg const& msg, _s_msg& read);

// saved_text - a string of a record as it is in its file: up to a NUL, without any CR
std::string saved_text(std::string const& text);

// The steps of msg_save and msg_load.

// write_key_dat - write key and value without any CR, and an LF if add_lf
//
// out  its exceptions() decide whether a write error is thrown
//
// Returns 0, or -1 when there is no memory, with nothing written.
int write_key_dat(std::ofstream& out, char const* key, std::string& value, bool add_lf);

// remove_r - remove every CR in place; without memory for that the string is unchanged
void remove_r(char* text);

// read_msg - fill a record from the lines of a stream
//
// in  its exceptions() decide whether a read error is thrown or ends the reading
//
// Returns 0.
int read_msg(std::ifstream& in, _s_msg* msg);

// set_msg - store one line, without its LF: as the value of the key that it begins with, else at the
// end of the body, after a CR LF unless the body is empty. Returns 0.
int set_msg(std::string const& line, _s_msg* msg);

// find_header_field - the field of the key that a line begins with, or null
header_field const* find_header_field(std::string_view line);

// set_dat - set field to what follows key in line. Returns 0, or -1 when line is shorter than key.
int set_dat(std::string const& line, char const* key, std::string& field);

}  // namespace zelieml

#endif
