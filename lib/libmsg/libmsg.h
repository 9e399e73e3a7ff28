// libmsg.h - the message record and its file
//
// A message is eight texts. Code outside this unit holds it as a void* handle, made by msg_create
// or msg_load and given back with msg_destroy; whoever holds the handle owns it. Texts are kept
// exactly as given: nothing is trimmed, no address is looked at.
//
// On disk (".sme") a message is plain bytes with single LF line ends: a line for each field, made
// of its key and its value, then the body. No length, no quoting, no version. A line that begins
// with a key is that field wherever it stands, in the middle of the body too.
//
// A null handle, or null where a text or a buffer is wanted, is a failure (-1) with nothing
// changed, unless a function says otherwise. Lack of memory for a copy of a text is thrown as
// std::bad_alloc, with the record as it was.
//
// Threads: any, one at a time for one record.

#ifndef ZELIEML_LIBMSG_LIBMSG_H
#define ZELIEML_LIBMSG_LIBMSG_H

#include <fstream>
#include <memory>
#include <string>

#include "zelieml.h"

namespace zelieml
{

struct _s_msg {
    std::string from;
    std::string to;
    std::string cc;  // empty: there is no Cc
    std::string subject;
    std::string replyto;
    std::string body;       // with CR LF line ends after msg_set_body
    std::string encoding;   // "UTF-8", "ISO-2022-JP", or whatever stood in a file
    std::string messageid;  // empty: there is none
};

// msg_create - make an empty record
//
// msg  receives the handle; the caller gives it back with msg_destroy
//
// Returns 0, or -1 when there is no memory.
int msg_create(void** msg);

// msg_init - make every text empty, and the encoding "UTF-8"
int msg_init(void* msg);

// msg_destroy - free a record. Null is accepted. Returns 0.
int msg_destroy(void* msg);

struct message_deleter {
    void operator()(void* msg) const { msg_destroy(msg); }
};

// A message record that frees itself.
using message_holder = std::unique_ptr<void, message_deleter>;

// msg_set_... - replace a text by a copy of text
int msg_set_from(void* msg, char const* text);
int msg_set_to(void* msg, char const* text);
int msg_set_cc(void* msg, char const* text);
int msg_set_subject(void* msg, char const* text);
int msg_set_replyto(void* msg, char const* text);
int msg_set_messageid(void* msg, char const* text);

// msg_set_body - replace the body by text with CR LF line ends
//
// A text that modify_line_feed refuses, and any text when there is no memory to convert it, is
// stored as it is: the empty text, and a text of nothing but lone line breaks ("\n" stays "\n").
//
// Returns 0, or -1 when twice the length of text does not fit an int.
int msg_set_body(void* msg, char const* text);

// msg_set_encoding - store get_encoding_str(enc)
int msg_set_encoding(void* msg, eml_encoding enc);

// get_encoding_str - "UTF-8" or "ISO-2022-JP"; a value that is none of eml_encoding's is UTF-8
char const* get_encoding_str(eml_encoding enc);

// modify_line_feed - make every line break CR LF: a lone CR, a lone LF, and CR LF itself
//
// in    text, not empty
// out   receives the text and its NUL; its *size bytes are cleared first
// size  in: bytes at out, the NUL included; out: length of the new text
//
// Returns 0, or -1 when in is empty or the new text and its NUL do not fit. Then *size is as it
// was and out holds no text to rely on.
int modify_line_feed(char const* in, char* out, int* size);

// msg_get_... - copy a text and its NUL into buf of size bytes
//
// Returns 0, or -1, leaving buf as it was, when they do not fit.
int msg_get_from(void* msg, char* buf, int size);
int msg_get_to(void* msg, char* buf, int size);
int msg_get_cc(void* msg, char* buf, int size);
int msg_get_subject(void* msg, char* buf, int size);
int msg_get_replyto(void* msg, char* buf, int size);
int msg_get_encoding(void* msg, char* buf, int size);
int msg_get_messageid(void* msg, char* buf, int size);
int msg_get_body(void* msg, char* buf, int size);

// msg_get_... - a copy of a text; "" for a null handle
std::string msg_get_from(void* msg);
std::string msg_get_to(void* msg);
std::string msg_get_cc(void* msg);
std::string msg_get_subject(void* msg);
std::string msg_get_replyto(void* msg);
std::string msg_get_encoding(void* msg);
std::string msg_get_messageid(void* msg);
std::string msg_get_body(void* msg);

// msg_cc_exist, msg_messageid_exist - true when the text is not empty; false for a null handle
bool msg_cc_exist(void* msg);
bool msg_messageid_exist(void* msg);

// msg_save - write a record to a file, which is created or replaced
//
// path  its directory has to exist. A new file gets mode 0666 less the umask.
//
// Every CR goes on the way, so the CR LF of the body becomes LF. A field that there is no memory
// for is left out, and that alone does not fail. Nothing is thrown.
//
// Returns 0. Returns -1 when the file cannot be opened, or when writing or closing it fails, for
// want of room on the disk for one; then the file stays as far as it was written.
int msg_save(void* msg, char const* path);

// msg_load - make a record from a file
//
// msg  receives a fresh record, which the caller gives back with msg_destroy, after a failure too
//
// A field that has no line keeps the value of a fresh record. Empty lines at the start of the body
// are lost. A NUL ends the value it stands in. Nothing is thrown.
//
// Returns 0, or -1 when there is no memory for a record (*msg is null then), or the file cannot be
// opened or read or is no regular file: a pipe or a device is not opened, lest it has no end.
int msg_load(void** msg, char const* path);

// The steps of msg_save and msg_load.

// write_key_dat - write key and value, less every CR, and a LF if add_lf
//
// out  throws std::ios::failure at an error if it was told to
//
// Returns 0, or -1 when there is no memory; then nothing was written.
int write_key_dat(std::ofstream& out, char const* key, std::string& value, bool add_lf);

// remove_r - delete every CR in place. Without memory to do so the text stays as it was.
void remove_r(char* text);

// read_msg - fill a record with the lines of a stream, up to its end
//
// in  throws at a read error if it was told to; otherwise reading ends there
//
// Returns 0.
int read_msg(std::ifstream& in, _s_msg* msg);

// set_msg - take one line, without its LF: the field whose key it begins with, or else body text,
// joined to the body so far with CR LF. Returns 0.
int set_msg(std::string const& line, _s_msg* msg);

// set_dat - set field to what follows key in line. Returns 0, or -1 when line is shorter than key.
int set_dat(std::string const& line, char const* key, std::string& field);

}  // namespace zelieml

#endif
