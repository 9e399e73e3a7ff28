// message.cpp - from the words of the command line to a message record

#include "tools/zelieml/message.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <random>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include "tools/zelieml/failure.h"
#include "tools/zelieml/library_text.h"
#include "tools/zelieml/locale_text.h"

namespace zelieml::program
{

namespace
{

// Far more than mail servers take.
constexpr std::size_t max_body_mib = 128;

std::string const auto_id = "auto";

bool is_standard_input(std::string const& file)
{
    return file == "-";
}

std::string name_of_body(std::string const& file)
{
    return is_standard_input(file) ? "standard input" : file;
}

struct file_closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

std::string read_body(std::string const& file)
{
    std::string const                             name = name_of_body(file);
    std::unique_ptr<std::FILE, file_closer> const opened(
        is_standard_input(file) ? nullptr : std::fopen(file.c_str(), "rbe"));
    std::FILE* const from = is_standard_input(file) ? stdin : opened.get();
    if (from == nullptr) {
        throw failure(EX_NOINPUT, name, errno, "name a file that can be read");
    }
    std::string body;
    char        piece[65536];
    std::size_t got = 0;
    while ((got = std::fread(piece, 1, sizeof piece, from)) > 0) {
        body.append(piece, got);
        if (body.size() > max_body_mib << 20U) {
            throw failure(EX_DATAERR, name + " is longer than " + std::to_string(max_body_mib) +
                                          " MiB, and too long for a mail: send less");
        }
    }
    if (std::ferror(from) != 0) {
        throw failure(EX_NOINPUT, name, errno, "name a file that can be read");
    }
    return body;
}

// Some editors begin a file in UTF-8 with a byte order mark, which is no part of its text.
std::string without_mark(std::string const& utf8)
{
    std::string const mark = "\xEF\xBB\xBF";
    return utf8.compare(0, mark.size(), mark) == 0 ? utf8.substr(mark.size()) : utf8;
}

// "p7@office.test" of "Printer 7 <p7@office.test>".
std::string plain_address(std::string const& from)
{
    std::size_t const open  = from.rfind('<');
    std::size_t const close = from.rfind('>');
    return open == from.npos || close == from.npos || close < open
               ? from
               : from.substr(open + 1, close - open - 1);
}

std::string joined(std::vector<std::string> const& lists)
{
    std::string all;
    for (std::string const& list : lists) {
        all += (all.empty() ? "" : ", ") + list;
    }
    return all;
}

// No other message has it: the time, the process, and chance.
std::string fresh_id()
{
    char host[256] = "";
    if (::gethostname(host, sizeof host - 1) != 0 || host[0] == '\0') {
        std::snprintf(host, sizeof host, "localhost");
    }
    std::random_device random;
    auto const         now = std::chrono::system_clock::now().time_since_epoch();
    auto const         us  = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    return "<" + std::to_string(us) + "." + std::to_string(::getpid()) + "." +
           std::to_string(random()) + "." + std::to_string(random()) + "@" + host + ">";
}

// Setters fail for want of memory only.
void need_memory(int status)
{
    if (status != 0) {
        throw std::bad_alloc();
    }
}

// Fills a record; texts are in UTF-8 and named as on the command line.
class record_filler
{
public:
    record_filler(message const& mail, std::string const& encoding)
        : mail_(mail), charset_(encoding == "utf-8" ? "UTF-8" : "ISO-2022-JP")
    {
        need_memory(eml_msg_set_encoding(
            mail_.record(), encoding == "utf-8" ? eml_encoding_utf8 : eml_encoding_iso2022jp));
    }

    void set(int (*setter)(void*, char const*), std::string const& text, std::string const& name)
    {
        need_memory(setter(mail_.record(), to_charset(text, charset_, name).c_str()));
    }

private:
    message const&    mail_;
    std::string const charset_;
};

message new_message()
{
    void* record = nullptr;
    need_memory(eml_msg_create(&record));
    return message(record);
}

// What the user would change for a field of the library.
std::string source_of(std::string const& field, mail_options const& options)
{
    if (field == "body") {
        return name_of_body(options.file);
    }
    if (field == "replyto") {
        return options.reply_to ? "--reply-to" : "--from, as the envelope sender";
    }
    return field == "messageid" ? "--message-id" : "--" + field;
}

// What the callback of a check needs.
struct check_run {
    mail_options const&      options;
    eml_severity             least;
    std::vector<std::string> faults;
    bool                     complete = true;
};

void keep_fault(eml_finding const* finding, void* user)
{
    check_run& run = *static_cast<check_run*>(user);
    if (finding->severity < run.least) {
        return;
    }
    try {
        std::string where = source_of(finding->field, run.options);
        if (finding->line > 0) {
            where += ", line " + std::to_string(finding->line);
        }
        run.faults.push_back(where + ": " + finding->text);
    } catch (std::bad_alloc const&) {
        run.complete = false;  // the library must not meet it
    }
}

// Whether a file of so many bytes can be made in a directory: 0, or what is in the way as a number
// of errno.
int error_of_new_file(std::string const& directory, std::size_t bytes)
{
    std::string path = directory + "/.zelieml-XXXXXX";
    int const   fd   = ::mkstemp(path.data());
    if (fd < 0) {
        return errno;
    }
    ::unlink(path.c_str());
    int               error = 0;
    std::string const piece(65536, '\n');
    while (bytes > 0 && error == 0) {
        ssize_t const written = ::write(fd, piece.data(), std::min(bytes, piece.size()));
        if (written >= 0) {
            bytes -= static_cast<std::size_t>(written);
        } else if (errno != EINTR) {
            error = errno;
        }
    }
    ::close(fd);
    return error;
}

}  // namespace

std::string message::text(int (*getter)(void* msg, char* buf, int size)) const
{
    return library_text([&](char* buf, int size) { return getter(record_.get(), buf, size); });
}

void add_mail_options(CLI::App& command, mail_options& options)
{
    CLI::Validator const not_empty(
        [](std::string& text) { return text.empty() ? "it is empty: write an address" : ""; }, "");
    command
        .add_option("--from", options.from,
                    "The sender: user@host, or a name and <user@host> after it")
        ->type_name("ADDRESS")
        ->check(not_empty)
        ->required();
    command.add_option("--to", options.to, "A recipient, or several with commas; may be repeated")
        ->type_name("ADDRESS")
        ->allow_extra_args(false)
        ->check(not_empty)
        ->required();
    command.add_option("--cc", options.cc, "Who gets a copy; the same")
        ->type_name("ADDRESS")
        ->allow_extra_args(false);
    command
        .add_option("--reply-to", options.reply_to,
                    "Where replies and bounces go; without it to the sender, '' for nowhere")
        ->type_name("ADDRESS");
    command.add_option("--subject", options.subject, "The subject")->type_name("TEXT");
    command.add_option("--encoding", options.encoding, "How the mail is encoded")
        ->transform(CLI::IsMember({"utf-8", "iso-2022-jp"}, CLI::ignore_case))
        ->capture_default_str();
    command
        .add_option("--message-id", options.message_id,
                    "The Message-Id: <name@host>, or 'auto' for a fresh one")
        ->type_name("TEXT");
    command
        .add_option("FILE", options.file,
                    "The body, in the locale's charset; '-' or none: standard input")
        ->type_name("");
}

message make_message(mail_options const& options)
{
    std::string const body = to_utf8(read_body(options.file), name_of_body(options.file));
    return make_message(options, without_mark(body));
}

message make_message(mail_options const& options, std::string const& body)
{
    std::string const from     = to_utf8(options.from, "--from");
    std::string const reply_to = options.reply_to ? to_utf8(*options.reply_to, "--reply-to")  //
                                                  : plain_address(from);
    std::string const id       = options.message_id == auto_id ? fresh_id() : options.message_id;

    message       mail = new_message();
    record_filler fill(mail, options.encoding);
    fill.set(eml_msg_set_from, from, "--from");
    fill.set(eml_msg_set_to, to_utf8(joined(options.to), "--to"), "--to");
    fill.set(eml_msg_set_cc, to_utf8(joined(options.cc), "--cc"), "--cc");
    fill.set(eml_msg_set_subject, to_utf8(options.subject, "--subject"), "--subject");
    fill.set(eml_msg_set_replyto, reply_to, options.reply_to ? "--reply-to" : "--from");
    fill.set(eml_msg_set_messageid, to_utf8(id, "--message-id"), "--message-id");
    fill.set(eml_msg_set_body, body, name_of_body(options.file));
    return mail;
}

std::vector<std::string> faults_of(message const& mail, mail_options const& options,
                                   eml_severity least)
{
    check_run run   = {options, least, {}};
    int const worst = eml_msg_check(mail.record(), keep_fault, &run);
    need_memory(worst < 0 || !run.complete ? -1 : 0);
    return run.faults;
}

std::optional<attempt> not_saved(std::string const& workdir, std::size_t bytes)
{
    constexpr std::size_t always_fits = 218;
    std::string const     reason      = "the message cannot be saved in " + workdir + ": ";
    if (workdir.size() > always_fits) {
        return not_attempted(eml_cause_file, reason + "the path is too long", "use a shorter path");
    }
    int const error = error_of_new_file(workdir, bytes);
    return error == 0 ? std::nullopt
                      : std::optional(not_attempted(eml_cause_file, reason + std::strerror(error)));
}

attempt send_now(std::string const& workdir, message const& mail)
{
    void* record = nullptr;
    eml_post_sync(workdir.c_str(), mail.record(), &record);
    std::unique_ptr<void, decltype(&eml_cb_delete)> const owner(record, eml_cb_delete);
    if (record == nullptr) {
        throw std::bad_alloc();
    }
    attempt     made   = attempt_of(record);
    struct stat status = {};
    if (::lstat(made.file.c_str(), &status) != 0) {
        made.file.clear();
    }
    return made;
}

}  // namespace zelieml::program
