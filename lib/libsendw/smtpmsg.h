// smtpmsg.h - the text of a mail (RFC 5322) in MIME (RFC 2045 to 2047)
//
// A message record becomes a list of strings, which are sent one after the other: one for each
// header, one for the empty line, one for the body. Each contains its own CR LF, except at the end
// of the body: there the CR LF is the first part of the SMTP end mark.
//
// There are two forms, chosen by the encoding of the record: exactly "ISO-2022-JP" gives a 7bit
// body, anything else UTF-8 with a Base64 body. Nothing is converted: subject and body must already
// be in that encoding. From, Reply-To and Message-Id are written unchanged.
//
// Any thread, one record each.

#ifndef ZELIEML_LIBSENDW_SMTPMSG_H
#define ZELIEML_LIBSENDW_SMTPMSG_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libconfw/libconfw.h"
#include "libmsg/message_body.h"
#include "support/line_breaks.h"

namespace zelieml
{

// smtpmsg_create_multiline - compose a mail
//
// msg   the record; for ISO-2022-JP its body is rewritten, see modify_body
// out   receives the strings; emptied first
// conf  path of the settings file, for subject_use_encoding
//
// Returns 0, or -1 when header or body could not be composed.
int smtpmsg_create_multiline(void* msg, std::vector<std::string>& out, char const* conf);

// smtpmsg_create_multiline - the same, with settings that have been read for this key
constexpr char key_subject_use_encoding[] = "subject_use_encoding";
int smtpmsg_create_multiline(void* msg, std::vector<std::string>& out, conf_settings const& conf);

// mail_text - smtpmsg_create_multiline for a mail whose body is still in its file
//
// A long body is read and encoded piece by piece, so that it is never in memory as a whole, and
// that the server has something to do meanwhile. All strings together are the text that
// smtpmsg_create_multiline gives.
class mail_text
{
public:
    // takes - whether a body can be composed in pieces
    //
    // One that is so long that the whole form leaves it out, or unchanged, is left to that form.
    static bool takes(void* msg, message_body const& body);

    // begin - compose all but the body
    //
    // msg   the record without its body
    // body  which is taken; the caller keeps it where it is
    // out   receives the strings, the last one an empty one for the body; emptied first
    // conf  as above
    //
    // Returns as smtpmsg_create_multiline does.
    int begin(void* msg, message_body& body, std::vector<std::string>& out,
              conf_settings const& conf);

    // done - whether there is no more to come; true before begin
    bool done() const { return done_; }

    // next - replace a string by the next piece of the body, in its memory
    //
    // piece  the same string each time: after the first time nothing is allocated
    //
    // Returns false when the file cannot be read, as message_body::read does.
    bool next(std::string& piece);

private:
    void encode(std::string& piece, std::size_t size);
    void convert(std::string& piece, std::size_t size);

    message_body*           body_     = nullptr;
    bool                    jis_      = false;
    bool                    started_  = false;
    bool                    done_     = true;
    bool                    converts_ = false;
    std::unique_ptr<char[]> bytes_;     // of the body
    std::size_t             held_ = 0;  // of them: a CR whose LF may follow in the next piece
    crlf_text               converted_{"", opening_dot::doubled};
};

// smtpmsg_split_address - split a list of addresses
//
// list  addresses separated by commas; no other separator is known
// out   receives the entries with all blanks removed; emptied first. Empty entries are kept.
//
// Returns 0, or -1 for an empty list.
int smtpmsg_split_address(std::string const& list, std::vector<std::string>& out);

// The steps of smtpmsg_create_multiline.

// The two forms; arguments and result as above. The body is used unchanged.
int smtpmsg_create_utf8_multiline(void* msg, std::vector<std::string>& out, char const* conf);
int smtpmsg_create_jis_multiline(void* msg, std::vector<std::string>& out, char const* conf);

// eliminate_space - a copy of a string without any blank (0x20)
std::string eliminate_space(std::string const& text);

// Header and body of the two forms, appended to out. Return 0.
int msg_header_utf8(void* msg, std::vector<std::string>& out, char const* conf);
int msg_header_jis(void* msg, std::vector<std::string>& out, char const* conf);
int msg_body_utf8(void* msg, std::vector<std::string>& out);
int msg_body_jis(void* msg, std::vector<std::string>& out);

// modify_body - prepare the body of an ISO-2022-JP record for SMTP
//
// Line ends become CR LF, and a dot that opens a line is doubled (RFC 5321, 4.5.2). Does nothing
// for any other encoding, for an empty body, or when there is no memory.
void modify_body(void* msg);

// modify_body_data - the conversion of modify_body, from one buffer into another
//
// in    the body
// out   receives the result and its NUL; all *size bytes are cleared first
// size  in: bytes at out. Out: length of the result.
//
// Returns 0. Returns -1 when a pointer is null, the body is empty, or the result and its NUL do not
// fit; the content of out is then undefined and *size unchanged.
int modify_body_data(char const* in, char* out, int* size);

// subject_use_encoding - whether the settings file wants the subject as an encoded word
//
// On when the key is missing, unlike every other switch: deliberate, see docs/ODDITIES.md.
// Otherwise only "yes" is on.
bool subject_use_encoding(char const* conf);

// get_multiline - a To or Cc header: the label, then each address on its own line
std::string get_multiline(std::vector<std::string> const& addresses, char const* label);

// _next - what follows an address: "," while count, this one included, is 2 or more
std::string _next(int count);

// _base64 - Base64 (RFC 4648) of a string, in lines of 76 characters or in one; empty on failure
std::string _base64(std::string const& text, bool line_breaks);

// The conversions into the two encodings, which change nothing (deliberate, see docs/ODDITIES.md),
// and Base64 of their results.
std::string _utf8(std::string text);
std::string _jis(std::string text);
std::string _utf8_base64(std::string text, bool line_breaks);
std::string _jis_base64(std::string text, bool line_breaks);

// One header each, with its CR LF. To and Cc are empty strings for an empty list.
std::string get_date();
std::string get_from(std::string const& from);
std::string get_to(std::string const& to);
std::string get_cc(std::string const& cc);
std::string get_subject_no_encoding(std::string const& subject);
std::string get_subject_utf8_base64(std::string const& subject);
std::string get_subject_jis_base64(std::string const& subject);
std::string get_replyto(std::string const& replyto);
std::string get_mime_version();
std::string get_content_type_utf8();
std::string get_content_type_jis();
std::string get_content_transfer_encoding_base64();
std::string get_content_transfer_encoding_7bit();
std::string get_messageid(std::string const& messageid);

// CR LF, which is also the empty line between header and body.
std::string get_crlf();

}  // namespace zelieml

#endif
