// addresses.cpp - lists of addresses and of allowed sender domains
//
// The input is a list, and then sender lines.

#include <algorithm>
#include <vector>

#include "fuzz/support/fuzz.h"
#include "libreceive/analyze.h"
#include "libsendw/smtpmsg.h"

using namespace zelieml;
using fuzz::require;

namespace
{

std::string without_spaces(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    return text;
}

std::string joined(std::vector<std::string> const& entries)
{
    std::string text;
    for (std::string const& entry : entries) {
        text += (&entry == &entries.front() ? "" : ",") + entry;
    }
    return text;
}

// The rule of docs/FORMATS.md, "Allowed sender domains".
bool is_allowed(std::string const& sender, std::vector<std::string> const& entries)
{
    std::size_t const at     = sender.find('@');
    std::string       domain = at == std::string::npos ? "" : sender.substr(at + 1);
    domain                   = domain.substr(0, domain.find('>'));
    return std::any_of(entries.begin(), entries.end(), [&](std::string const& entry) {
        return domain.find(entry) != std::string::npos;
    });
}

void require_split(std::string const& list, std::vector<std::string> const& entries)
{
    auto const commas = static_cast<std::size_t>(std::count(list.begin(), list.end(), ','));
    require(entries.size() == (list.empty() ? 0 : commas + 1), "every comma separates two entries");
    require(joined(entries) == without_spaces(list), "entries lose their spaces and nothing else");
    for (std::string const& entry : entries) {
        require(entry.find(',') == std::string::npos, "no entry has a comma");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::no_descriptor_left const guard;
    fuzz::input                    input(data, size);
    std::string const              list = input.field();

    std::vector<std::string> entries = {"what was there before"};
    require(smtpmsg_split_address(list, entries) == (list.empty() ? -1 : 0),
            "only an empty list of addresses is refused");
    require_split(list, entries);
    entries = {"what was there before"};
    require(split_domain(list, entries) == 0, "any list of domains can be split");
    require_split(list, entries);

    std::vector<std::string> from, subject, wanted_from, wanted_subject;
    while (!input.at_end()) {
        from.push_back(input.field());
        subject.push_back(std::to_string(from.size()));
        if (is_allowed(from.back(), entries)) {
            wanted_from.push_back(from.back());
            wanted_subject.push_back(subject.back());
        }
    }
    int                      count = static_cast<int>(from.size());
    std::vector<std::string> kept_from, kept_subject;
    require(analyze_domain(list, count, from, subject, kept_from, kept_subject) == 0,
            "any mails can be selected from");
    require(count == static_cast<int>(wanted_from.size()) && kept_from == wanted_from &&
                kept_subject == wanted_subject,
            "the mails of allowed senders are kept");
    return 0;
}
