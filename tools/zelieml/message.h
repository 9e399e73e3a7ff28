// message.h - a mail as the user describes it, and the library's record of it

#ifndef ZELIEML_TOOLS_ZELIEML_MESSAGE_H
#define ZELIEML_TOOLS_ZELIEML_MESSAGE_H

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/zelieml/attempt.h"
#include "tools/zelieml/command.h"
#include "zelieml_ext.h"

namespace zelieml::program
{

// A mail in the words of the command line: all in the charset of the locale.
struct mail_options {
    std::string                from;
    std::vector<std::string>   to;  // each one address or several with commas, as in cc
    std::vector<std::string>   cc;
    std::optional<std::string> reply_to;  // without it the plain address in from
    std::string                subject;
    std::string                encoding = "utf-8";  // or "iso-2022-jp"
    std::string                message_id;          // "auto": a fresh one; empty: none
    std::string                file = "-";          // that holds the body; "-": standard input
};

// add_mail_options - the options that set them
void add_mail_options(CLI::App& command, mail_options& options);

// A message record and its owner.
class message
{
public:
    // Takes over a record, such as one of eml_msg_load.
    explicit message(void* record) : record_(record, eml_msg_destroy) {}

    void* record() const { return record_.get(); }

    // What one of the library's getters copies: text(eml_msg_get_subject).
    std::string text(int (*getter)(void* msg, char* buf, int size)) const;

private:
    std::unique_ptr<void, int (*)(void*)> record_;
};

// make_message - the record of a mail, in the encoding that it is sent in
//
// Reads the body. Throws a failure: EX_NOINPUT when that cannot be read, EX_DATAERR for text that is
// not valid in the charset of the locale, cannot be converted, or is too long for a mail.
message make_message(mail_options const& options);

// The same with this body, in UTF-8.
message make_message(mail_options const& options, std::string const& body);

// faults_of - what the message check finds of this severity or worse, each with the option or the
// line that it is about
std::vector<std::string> faults_of(message const& mail, mail_options const& options,
                                   eml_severity least);

// not_saved - how an attempt ends when a message of so many bytes cannot be saved in a work
// directory; nothing when it can
//
// For before it is saved: on a full disk the library leaves a part of it, which an engine would send.
std::optional<attempt> not_saved(std::string const& workdir, std::size_t bytes);

// send_now - what became of a mail, with the settings of a work directory; the file is named if it is
// still there
attempt send_now(std::string const& workdir, message const& mail);

}  // namespace zelieml::program

#endif
