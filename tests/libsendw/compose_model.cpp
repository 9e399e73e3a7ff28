#include "tests/libsendw/compose_model.h"

#include "tests/libbase64/base64_model.h"
#include "tests/libconf/settings_model.h"

namespace zelieml::test
{

namespace
{

std::string two_digits(std::int64_t number)
{
    return (number < 10 ? "0" : "") + std::to_string(number);
}

// printf's %02d: a minus is one of the two characters.
std::string two_places(std::int64_t number)
{
    return number < 0 ? std::to_string(number) : two_digits(number);
}

bool is_leap(std::int64_t year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

// An entry for each address, on a line of its own; nothing for an empty list.
std::string address_lines(std::string const& label, std::string const& list)
{
    if (list.empty()) {
        return "";
    }
    std::string text   = label;
    char const* before = " ";
    for (std::string const& address : model_addresses(list)) {
        text += before + address;
        before = ",\r\n ";
    }
    return text + "\r\n";
}

// Every line break is CR LF, and a dot that opens a line is doubled.
std::string seven_bit_body(std::string const& body)
{
    std::string lines;
    bool        opens = true;
    for (std::size_t i = 0; i < body.size(); ++i) {
        if (body[i] == '\r' || body[i] == '\n') {
            i += body.compare(i, 2, "\r\n") == 0 ? 1 : 0;
            lines += "\r\n";
            opens = true;
        } else {
            lines += opens && body[i] == '.' ? ".." : std::string(1, body[i]);
            opens = false;
        }
    }
    return lines;
}

}  // namespace

std::string model_date(std::int64_t seconds, double zone_offset)
{
    char const* const weekdays[] = {"Thu", "Fri", "Sat", "Sun", "Mon", "Tue", "Wed"};
    char const* const months[]   = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    int const         lengths[]  = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

    std::int64_t       day     = seconds / 86400;
    std::int64_t const time    = seconds % 86400;
    char const* const  weekday = weekdays[day % 7];
    std::int64_t       year    = 1970;
    for (; day >= (is_leap(year) ? 366 : 365); ++year) {
        day -= is_leap(year) ? 366 : 365;
    }
    int  month  = 0;
    auto length = [&] { return lengths[month] + (month == 1 && is_leap(year) ? 1 : 0); };
    while (day >= length()) {
        day -= length();
        ++month;
    }

    auto const         zone_minutes = static_cast<std::int64_t>(zone_offset) / 60;
    std::int64_t const zone_hours   = zone_minutes / 60;
    return std::string(weekday) + ", " + two_digits(day + 1) + " " + months[month] + " " +
           std::to_string(year) + " " + two_digits(time / 3600) + ":" + two_digits(time / 60 % 60) +
           ":" + two_digits(time % 60) + " " + (zone_hours > 0 ? "+" : "-") +
           two_places(zone_hours) + two_places(zone_minutes % 60);
}

std::optional<std::string> model_setting(std::optional<std::string> const& settings,
                                         std::string const&                key)
{
    if (!settings) {
        return {};
    }
    reading const read = model_get(*settings, key, std::string(1024, '#'));
    if (read.result != 0) {
        return {};
    }
    return read.buffer.substr(0, read.length);
}

std::vector<std::string> model_addresses(std::string const& list)
{
    std::vector<std::string> addresses = {""};
    for (char const c : list) {
        if (c == ',') {
            addresses.emplace_back();
        } else if (c != ' ') {
            addresses.back() += c;
        }
    }
    return addresses;
}

std::vector<std::string> model_mail(message& m, std::optional<std::string> const& settings,
                                    std::string const& date)
{
    auto const& [encoding, from, to, cc, subject, replyto, messageid] = m.header;

    bool const        jis     = encoding == "ISO-2022-JP";
    std::string const charset = jis ? "ISO-2022-JP" : "UTF-8";
    bool const encoded = model_setting(settings, "subject_use_encoding").value_or("yes") == "yes";
    if (jis) {
        m.body = seven_bit_body(m.body);
    }

    std::vector<std::string> pieces;
    pieces.push_back("Date: " + date + "\r\n");
    pieces.push_back("From: " + from + "\r\n");
    pieces.push_back(address_lines("To:", to));
    if (!cc.empty()) {
        pieces.push_back(address_lines("Cc:", cc));
    }
    pieces.push_back(
        "Subject: " +
        (encoded ? "=?" + charset + "?B?" + model_encode(subject, false) + "?=" : subject) +
        "\r\n");
    pieces.push_back("Reply-To: " + replyto + "\r\n");
    pieces.push_back("Mime-Version: 1.0\r\n");
    pieces.push_back("Content-Type: text/plain; charset=\"" + charset + "\"\r\n");
    pieces.push_back(std::string("Content-Transfer-Encoding: ") + (jis ? "7bit" : "base64") +
                     "\r\n");
    if (!messageid.empty()) {
        pieces.push_back("Message-Id: " + messageid + "\r\n");
    }
    pieces.push_back("\r\n");
    pieces.push_back(jis ? m.body : model_encode(m.body, true));
    return pieces;
}

}  // namespace zelieml::test
