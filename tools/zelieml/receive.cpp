// receive.cpp - zelieml receive: empty a mailbox, and print what was in it

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <sysexits.h>
#include <vector>

#include "tools/zelieml/attempt.h"
#include "tools/zelieml/command.h"
#include "tools/zelieml/failure.h"
#include "tools/zelieml/library_text.h"
#include "tools/zelieml/locale_text.h"
#include "tools/zelieml/output.h"
#include "tools/zelieml/secret.h"
#include "tools/zelieml/setting_keys.h"
#include "tools/zelieml/settings_file.h"
#include "tools/zelieml/usage.h"
#include "zelieml_ext.h"

namespace zelieml::program
{

namespace
{

constexpr int usual_port     = 110;
constexpr int usual_tls_port = 995;

struct receive_options {
    bool                     may_delete = false;
    std::string              host;
    std::optional<int>       port;
    std::string              user;
    bool                     apop = false;
    std::string              tls;
    std::string              ca_file;
    std::vector<std::string> domains;
    int                      password_fd = -1;
};

struct mailbox {
    std::string host;
    int         port;
    std::string user;
    secret      password;
    bool        apop;
    std::string tls;
    std::string ca_file;  // empty for the authorities that the system trusts
};

bool has_control(std::string const& text)
{
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; });
}

// What an option says, in UTF-8.
std::string text_of(std::string const& value, std::string const& option)
{
    if (value.empty() || has_control(value)) {
        throw failure(EX_USAGE, option +
                                    (value.empty() ? " is empty" : " has a control character") +
                                    ": say what is meant");
    }
    return to_utf8(value, option);
}

// The library takes full paths only.
std::string full_path(std::string const& file)
{
    std::unique_ptr<char, decltype(&std::free)> const full(::realpath(file.c_str(), nullptr),
                                                           std::free);
    if (full == nullptr) {
        throw failure(EX_NOINPUT, "--ca-file " + file, errno, "name a file that can be read");
    }
    return full.get();
}

mailbox mailbox_of_options(receive_options const& asked_for)
{
    if (asked_for.user.empty()) {
        throw failure(EX_USAGE, "whose mailbox is not said: name the account with --user");
    }
    std::string host = text_of(asked_for.host, "--host");
    std::string user = text_of(asked_for.user, "--user");
    std::string tls  = asked_for.tls.empty() ? "no" : asked_for.tls;
    int const   port = asked_for.port.value_or(tls == "tls" ? usual_tls_port : usual_port);
    return {std::move(host),
            port,
            std::move(user),
            read_secret("Password: ", asked_for.password_fd),
            asked_for.apop,
            std::move(tls),
            asked_for.ca_file.empty() ? "" : full_path(asked_for.ca_file)};
}

// A setting that has to do what its writer means.
std::string sound(settings_text const& settings, std::string const& key, std::string const& workdir)
{
    std::string       value = needed(settings, key, workdir);
    std::string const fault = fault_of(known_setting(key), value);
    if (!fault.empty()) {
        throw failure(EX_CONFIG, settings_path(workdir) + ": " + fault);
    }
    return value;
}

secret stored_password(settings_text const& settings, std::string const& workdir)
{
    std::string const text = needed(settings, "pop_passwd", workdir);
    if (text.empty()) {
        throw failure(EX_CONFIG, "pop_passwd is empty in " + settings_path(workdir) +
                                     ": set it (zelieml settings set pop_passwd)");
    }
    return are_clear(settings) ? secret(text) : decrypted(text, "pop_passwd");
}

// A setting for TLS, which may be missing. As in the library, nothing is taken for it while there
// is a doubt.
std::string sound_or(std::string const& otherwise, settings_text const& settings,
                     std::string const& key, std::string const& workdir)
{
    std::size_t const contested = settings.contested(key);
    if (contested != 0) {
        throw failure(EX_CONFIG, settings_path(workdir) + ", line " + std::to_string(contested) +
                                     ": " + key + " must stand in one line only, which begins " +
                                     "with it and \"=\": correct it with an editor");
    }
    return settings.read(key) ? sound(settings, key, workdir) : otherwise;
}

mailbox mailbox_of_settings(receive_options const& asked_for, std::string const& workdir)
{
    settings_text const    settings = read_settings(workdir);
    std::optional<reading> type     = settings.read("pop_auth_type");
    std::string            host     = sound(settings, "pop_server", workdir);
    int const              port     = std::stoi(sound(settings, "pop_port", workdir));
    std::string            user     = sound(settings, "pop_account", workdir);
    return {std::move(host),
            port,
            std::move(user),
            asked_for.password_fd >= 0 ? read_secret("", asked_for.password_fd)
                                       : stored_password(settings, workdir),
            type && type->value == "apop",
            sound_or("no", settings, "pop_tls", workdir),
            sound_or("", settings, "tls_ca_file", workdir)};
}

// The option that only says something about the server of --host; empty when there is none.
std::string option_of_host(receive_options const& asked_for)
{
    return !asked_for.user.empty()      ? "--user"
           : asked_for.port             ? "--port"
           : asked_for.apop             ? "--apop"
           : !asked_for.tls.empty()     ? "--tls"
           : !asked_for.ca_file.empty() ? "--ca-file"
                                        : "";
}

mailbox mailbox_of(receive_options const& asked_for, command_line const& line)
{
    if (!asked_for.host.empty()) {
        return mailbox_of_options(asked_for);
    }
    std::string const option = option_of_host(asked_for);
    if (!option.empty()) {
        throw failure(EX_USAGE, option + " goes with --host only: name the mailbox with --host and "
                                         "--user, or set pop_server, pop_port, pop_account, "
                                         "pop_auth_type and pop_tls (zelieml settings set)");
    }
    if (!line.has_workdir()) {
        throw failure(EX_USAGE, "no mailbox is named: name it with --host and --user, or a work "
                                "directory with settings for POP3 with -w");
    }
    return mailbox_of_settings(asked_for, line.workdir());
}

// The list as the library takes it. An empty entry would allow all.
std::string domain_list(std::vector<std::string> const& domains)
{
    std::string list;
    for (std::string const& domain : domains) {
        if (domain.find_first_of(", ") != domain.npos) {
            throw failure(EX_USAGE, "--domain takes one domain: repeat the option");
        }
        list += (list.empty() ? "" : ",") + text_of(domain, "--domain");
    }
    return list;
}

// Mails that were received, and how that ended.
struct received {
    std::unique_ptr<void, decltype(&eml_receive_msg_destroy)> list{nullptr,
                                                                   eml_receive_msg_destroy};
    attempt                                                   ended;
};

// A server may repeat the password.
std::string without(std::string text, secret const& password)
{
    for (std::size_t at = 0; (at = text.find(password.text(), at)) != text.npos;) {
        text.replace(at, password.size(), "***");
        at += 3;
    }
    return text;
}

received receive_from(mailbox const& from, std::string const& domains)
{
    received all;
    void*    list   = nullptr;
    void*    server = nullptr;
    if (eml_receive_msg_create(&list) != 0) {
        throw std::bad_alloc();
    }
    all.list.reset(list);
    if (server_info_create(&server) != 0) {
        throw std::bad_alloc();
    }
    std::unique_ptr<void, decltype(&server_info_destroy)> const server_owner(server,
                                                                             server_info_destroy);
    server_info_set_pop(server, from.host.c_str(), from.user.c_str(), from.password.text(),
                        from.apop ? "apop" : "pop", from.port, 0);
    if (server_info_set_tls(server, nullptr, from.tls.c_str(),
                            from.ca_file.empty() ? nullptr : from.ca_file.c_str()) != 0) {
        throw std::bad_alloc();
    }
    void*     record = nullptr;
    int const status = eml_receive_mails_result(server, list, domains.c_str(), &record);
    std::unique_ptr<void, decltype(&eml_cb_delete)> const record_owner(record, eml_cb_delete);
    if (record != nullptr) {
        all.ended       = attempt_of(record);
        all.ended.reply = without(all.ended.reply, from.password);
    } else if (status != 0) {
        all.ended.cause = eml_cause_memory;
    }
    return all;
}

using mail_getter = int (*)(void*, int, char*, int);

std::string field_of(received const& all, int index, mail_getter get)
{
    return library_text([&](char* buf, int size) { return get(all.list.get(), index, buf, size); });
}

json mails_of(received const& all)
{
    json mails = json::array();
    for (int i = 0; i < eml_receive_msg_count(all.list.get()); ++i) {
        mails.push_back({{"sender", field_of(all, i, eml_receive_msg_get_sender_utf8)},
                         {"subject", field_of(all, i, eml_receive_msg_get_subject_utf8)},
                         {"message_id", field_of(all, i, eml_receive_msg_get_messageid)},
                         {"date", field_of(all, i, eml_receive_msg_get_date)}});
    }
    return mails;
}

void print(received const& all, bool as_json)
{
    if (as_json) {
        json whole = {{"mails", mails_of(all)}};
        whole.update(to_json(all.ended));
        print_json(whole);
        return;
    }
    for (int i = 0; i < eml_receive_msg_count(all.list.get()); ++i) {
        print_line(to_terminal(field_of(all, i, eml_receive_msg_get_sender_utf8)) + "\t" +
                   to_terminal(field_of(all, i, eml_receive_msg_get_subject_utf8)));
    }
}

// That nothing was received.
void print_failure(failure const& fault)
{
    received none;
    none.ended      = not_attempted(fault);
    none.ended.step = none.ended.cause == eml_cause_settings ? "settings" : "";
    print(none, true);
}

char const* advice(attempt const& ended)
{
    if (ended.step == "pop greeting" && ended.cause == eml_cause_protocol) {
        return "this is no POP3 server, compare host and port (--host, --port; pop_server, "
               "pop_port) with what its administrator says";
    }
    switch (exit_status(ended)) {
    case EX_NOPERM:
        return "look at account and password, and at the way to log in (--apop, pop_auth_type)";
    case EX_UNAVAILABLE:
        return "look at host and port, and try again";
    case EX_SOFTWARE:
        return "there is not enough memory";
    default:
        return "try again later, or ask who runs the server";
    }
}

int receive(command_line const& line, receive_options const& asked_for)
{
    if (!asked_for.may_delete) {
        throw failure(EX_USAGE,
                      "receiving deletes every mail of the mailbox on the server, also those that "
                      "are not printed: say with --delete that this is meant");
    }
    std::string const domains = domain_list(asked_for.domains);
    mailbox const     from    = mailbox_of(asked_for, line);
    need_output();
    received const all = receive_from(from, domains);
    print(all, line.options().json);
    int const status = exit_status(all.ended);
    if (status != EX_OK) {
        std::string const why = all.ended.reason.empty() ? "the mailbox" : all.ended.reason;
        throw failure(status, to_terminal(why + ": " + advice(all.ended)));
    }
    return EX_OK;
}

constexpr char examples[] =
    "  zelieml receive --delete --host pop.office.test --user printer7\n"
    "  zelieml receive --delete --host pop.office.test --user printer7 --apop \\\n"
    "      --domain office.test --domain example.test --json --password-fd 3 3< password.txt\n"
    "  zelieml receive --delete -w /var/spool/zelieml\n"
    "\n"
    "Each line has the sender and the subject of a mail, with a tab between them. EVERY MAIL OF\n"
    "THE MAILBOX IS DELETED ON THE SERVER, also mails of other domains and of more than 2000 lines,\n"
    "which are not printed. When the connection is lost, what came before is printed. Do not\n"
    "interrupt the program: what it has fetched by then is lost. It does not begin when standard\n"
    "output is closed or full, but what cannot be printed in the end is lost: on a disk that fills\n"
    "up meanwhile, for instance.\n"
    "\n"
    "A domain matches anywhere in the sender's domain, case-sensitively: office.test also allows\n"
    "mail.office.test and notoffice.test. It does not prove who sent a mail.\n";

}  // namespace

void add_receive(command_line& line)
{
    auto const asked_for = std::make_shared<receive_options>();
    CLI::App&  command =
        line.add(line.app(), "receive", "Empty a mailbox, and print senders and subjects", examples,
                 [&line, asked_for] { return receive(line, *asked_for); });
    command.add_flag("--delete", asked_for->may_delete, "Required: the mails are deleted");
    command
        .add_option("--host", asked_for->host, "The POP3 server; without it, the settings count")
        ->type_name("HOST")
        ->check(not_empty("name the server"));
    command.add_option("--port", asked_for->port, "Its port (110; with --tls tls 995)")
        ->type_name("PORT")
        ->check(number_from(1, 65535));
    command.add_option("--user", asked_for->user, "The account")
        ->type_name("NAME")
        ->check(not_empty("name the account"));
    command.add_flag("--apop", asked_for->apop, "Log in with APOP");
    command
        .add_option("--tls", asked_for->tls,
                    "TLS: from the first byte (tls; port 995), or after STLS (starttls)")
        ->type_name("MODE")
        ->check(CLI::IsMember({"no", "starttls", "tls"}));
    command
        .add_option("--ca-file", asked_for->ca_file,
                    "Trust the authorities in this PEM file, not the system's")
        ->type_name("FILE")
        ->check(not_empty("name the file"));
    command
        .add_option("--domain", asked_for->domains,
                    "Print only mails of this sender domain; may be repeated")
        ->type_name("DOMAIN")
        ->allow_extra_args(false);
    line.add_own_workdir(command);
    line.add_json(command, print_failure);
    add_password_fd(command, asked_for->password_fd);
}

}  // namespace zelieml::program
