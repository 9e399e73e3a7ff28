// settings.cpp - zelieml settings: look at the settings of a work directory, and change them

#include <cstdio>
#include <memory>
#include <sysexits.h>

#include "tools/zelieml/command.h"
#include "tools/zelieml/failure.h"
#include "tools/zelieml/locale_text.h"
#include "tools/zelieml/output.h"
#include "tools/zelieml/secret.h"
#include "tools/zelieml/setting_findings.h"
#include "tools/zelieml/setting_keys.h"
#include "tools/zelieml/settings_file.h"
#include "zelieml_ext.h"

namespace zelieml::program
{

namespace
{

struct set_options {
    std::string key;
    std::string value;
    bool        has_value   = false;
    int         password_fd = -1;
};

bool is_password(setting_key const& key)
{
    return key.kind == setting_kind::password;
}

json shown_value(setting_key const& key, std::string const& value)
{
    return is_password(key) ? json(true) : json(value);
}

void print_setting(setting_key const& key, std::string const& value, bool as_json)
{
    if (as_json) {
        print_json({{"key", key.name}, {"value", shown_value(key, value)}});
    } else {
        print_line(is_password(key) ? "(set)" : to_terminal(value));
    }
}

int get(common_options const& options, std::string const& name)
{
    setting_key const& key = known_setting(name);
    print_setting(key, needed(read_settings(options.workdir), name, options.workdir), options.json);
    return EX_OK;
}

// A password as it is to be stored.
std::string stored(secret const& password, bool clear, setting_key const& key)
{
    if (clear &&
        (password.text()[0] == ' ' || password.text()[0] == '\t' ||
         std::string_view(password.text()).find_first_of("\r\n") != std::string_view::npos)) {
        throw failure(EX_DATAERR, "this password of " + key.name +
                                      " cannot be stored in clear text, with a blank at its "
                                      "beginning or a line break: set passwd_raw to no");
    }
    std::string text = clear ? password.text() : encrypted(password);
    if (text.size() > longest_value(key.name)) {
        throw failure(EX_DATAERR, "the password of " + key.name +
                                      " is too long to be stored, with "
                                      "more than " +
                                      std::to_string(longest_value(key.name) / (clear ? 1 : 2)) +
                                      " bytes: choose a shorter one");
    }
    return text;
}

void set_password(common_options const& options, set_options const& asked_for,
                  setting_key const& key)
{
    if (asked_for.has_value) {
        throw failure(EX_USAGE, "a password on the command line could be seen by everybody: leave "
                                "it away to be asked for it, or pass it with --password-fd");
    }
    secret const      password = read_secret("Password, to be stored as " + key.name + ": ",
                                             asked_for.password_fd, asked::twice);
    settings_change   change(options.workdir);
    std::string const text = stored(password, are_clear(change.settings()), key);
    change.settings().set(key.name, text);
    change.write(key.name, text);
}

// Stores the passwords that there are in the other form.
void convert_passwords(settings_text& settings, bool clear, std::string const& workdir)
{
    for (setting_key const& key : setting_keys()) {
        std::optional<reading> const found = settings.read(key.name);
        if (!is_password(key) || !found || found->value.empty()) {
            continue;
        }
        std::string const text     = needed(settings, key.name, workdir);
        secret const      password = clear ? decrypted(text, key.name) : secret(text);
        settings.set(key.name, stored(password, clear, key));
    }
}

// Warns of a key for TLS that is set and not read, or that the change of another one has hidden:
// then no connection to that server is made.
void warn_of_contested(std::string const& set, settings_text const& before,
                       settings_text const& after)
{
    for (char const* const key : {"smtp_tls", "pop_tls", "tls_ca_file"}) {
        std::size_t const line = after.contested(key);
        if (line != 0 && (key == set || before.contested(key) == 0)) {
            std::fprintf(
                stderr,
                "zelieml: no connection is made while line %zu contains %s, too: correct that "
                "line with an editor\n",
                line, key);
        }
    }
}

void set_value(common_options const& options, set_options const& asked_for, setting_key const& key)
{
    if (!asked_for.has_value) {
        throw failure(EX_USAGE, "the value of " + key.name + " is missing: write " +
                                    values_of(key) + " after the key");
    }
    std::string const value = to_utf8(asked_for.value, "the value of " + key.name);
    std::string const fault = fault_of(key, value);
    if (!fault.empty()) {
        throw failure(EX_USAGE, fault);
    }
    settings_change     change(options.workdir);
    settings_text const before     = change.settings();
    bool const          were_clear = are_clear(before);
    change.settings().set(key.name, value);
    bool const clear = are_clear(change.settings());
    if (clear != were_clear) {
        convert_passwords(change.settings(), clear, options.workdir);
    }
    change.write(key.name, value);
    warn_of_contested(key.name, before, change.settings());
}

int set(common_options const& options, set_options const& asked_for)
{
    setting_key const& key = known_setting(asked_for.key);
    if (is_password(key)) {
        set_password(options, asked_for, key);
    } else {
        set_value(options, asked_for, key);
    }
    if (options.json) {
        print_setting(key, to_utf8(asked_for.value, "the value of " + key.name), true);
    }
    return EX_OK;
}

// Why a value is not what its line looks like.
enum class trap : char {
    none,
    other_key,  // the line is another key's, and contains the name of this one
    cut         // its last character is lost
};

trap trap_of(setting_key const& key, reading const& found)
{
    return found.key != key.name ? trap::other_key : found.has_cr ? trap::none : trap::cut;
}

// overlong  of the settings
std::string line_of(setting_key const& key, std::optional<reading> const& found,
                    std::size_t overlong)
{
    if (!found || !found->has_sign) {
        return "# " + key.name + " is not set" +
               (found || overlong == 0 ? "" : " before line " + std::to_string(overlong)) + ": " +
               key.missing;
    }
    std::string line = key.name + " = " + (is_password(key) ? "(set)" : to_terminal(found->value));
    switch (trap_of(key, *found)) {
    case trap::other_key:
        return line + "   # from line " + std::to_string(found->line) +
               ", which contains that name";
    case trap::cut:
        return line + "   # its CR is missing, so the last character is lost: set it anew " +
               set_command(key.name);
    case trap::none:
        break;
    }
    return line;
}

void show_text(settings_text const& settings)
{
    if (settings.overlong() != 0) {
        print_line("# line " + std::to_string(settings.overlong()) +
                   " is longer than 1023 bytes and hides all from there on: shorten it with an "
                   "editor");
    }
    for (setting_key const& key : setting_keys()) {
        print_line(line_of(key, settings.read(key.name), settings.overlong()));
    }
}

json mark(std::size_t line, std::string const& key, char const* what)
{
    return {{"line", line}, {"key", key}, {"mark", what}};
}

void show_json(settings_text const& settings)
{
    json all   = json::object();
    json marks = json::array();
    if (settings.overlong() != 0) {
        marks.push_back(mark(settings.overlong(), "", "too_long"));
    }
    for (setting_key const& key : setting_keys()) {
        std::optional<reading> const found = settings.read(key.name);
        if (!found || !found->has_sign) {
            all[key.name] = nullptr;
            continue;
        }
        all[key.name]  = shown_value(key, found->value);
        trap const met = trap_of(key, *found);
        if (met != trap::none) {
            marks.push_back(mark(found->line, key.name, met == trap::cut ? "cut" : "other_key"));
        }
    }
    all["marks"] = marks;
    print_json(all);
}

int show(common_options const& options)
{
    settings_text const settings = read_settings(options.workdir);
    options.json ? show_json(settings) : show_text(settings);
    return EX_OK;
}

int check(common_options const& options)
{
    std::string const path     = settings_path(options.workdir);
    auto const        findings = find_in_settings(options.workdir, eml_severity_note);
    json              all      = json::array();
    bool              trapped  = false;
    for (setting_finding const& found : findings) {
        if (options.json) {
            all.push_back(to_json(found));
        } else {
            print_line(line_of(found));
        }
        trapped = trapped || found.severity > eml_severity_note;
    }
    if (options.json) {
        print_json(all);
    }
    if (trapped) {
        throw failure(EX_CONFIG, path + " has faults: mend what is printed as error or warning");
    }
    return EX_OK;
}

std::string table_of_keys()
{
    constexpr std::size_t width = 22;
    std::string           table = "\nKeys:\n";
    for (setting_key const& key : setting_keys()) {
        table += "  " + key.name + std::string(width - key.name.size(), ' ') + key.help + " (" +
                 values_of(key) + ")\n";
    }
    return table;
}

constexpr char get_examples[] = "  zelieml settings get -w /var/spool/zelieml smtp_server";
constexpr char set_examples[] =
    "  zelieml settings set -w /var/spool/zelieml smtp_server mail.office.test\n"
    "  zelieml settings set -w /var/spool/zelieml smtp_port 25\n"
    "  zelieml settings set -w /var/spool/zelieml smtp_passwd\n"
    "  zelieml settings set -w /var/spool/zelieml smtp_passwd < password.txt\n"
    "\n"
    "Passwords are asked for, and stored encrypted unless passwd_raw is yes. Setting passwd_raw\n"
    "converts those that are stored. Programs that write the file by the library's function are\n"
    "not kept out meanwhile; if one does, nothing is changed, with exit status 75.\n";

void add_get(command_line& line, CLI::App& group)
{
    auto const key = std::make_shared<std::string>();
    CLI::App&  get_command =
        line.add(group, "get", "Print the value of a key", get_examples + ("\n" + table_of_keys()),
                 [&line, key] { return get(line.options(), *key); });
    line.add_workdir(get_command);
    line.add_json(get_command);
    get_command.add_option("KEY", *key, "The key")->required()->type_name("");
}

void add_set(command_line& line, CLI::App& group)
{
    auto const asked_for = std::make_shared<set_options>();
    CLI::App&  command =
        line.add(group, "set", "Set the value of a key", set_examples + table_of_keys(),
                 [&line, asked_for] { return set(line.options(), *asked_for); });
    line.add_workdir(command);
    line.add_json(command);
    command.add_option("KEY", asked_for->key, "The key")->required()->type_name("");
    command
        .add_option_function<std::string>(
            "VALUE",
            [asked_for](std::string const& value) {
                asked_for->value     = value;
                asked_for->has_value = true;
            },
            "Its value; of a password, nothing")
        ->type_name("");
    add_password_fd(command, asked_for->password_fd);
}

}  // namespace

void add_settings(command_line& line)
{
    CLI::App& group = line.add_group("settings", "Look at the settings, and change them");
    add_get(line, group);
    add_set(line, group);
    CLI::App& show_command = line.add(group, "show", "Print all settings, without the passwords",
                                      "  zelieml settings show -w /var/spool/zelieml\n"
                                      "  zelieml settings show -w /var/spool/zelieml --json",
                                      [&line] { return show(line.options()); });
    line.add_workdir(show_command);
    line.add_json(show_command);
    CLI::App& check_command = line.add(group, "check", "Say what is wrong with the settings file",
                                       "  zelieml settings check -w /var/spool/zelieml",
                                       [&line] { return check(line.options()); });
    line.add_workdir(check_command);
    line.add_json(check_command);
}

}  // namespace zelieml::program
