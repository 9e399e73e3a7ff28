// analyze.cpp - which received mails come from an allowed domain

#include "libreceive/analyze.h"

#include <algorithm>

#include "liblog/trace.h"
#include "libsendw/smtpmsg.h"

namespace zelieml
{

int analyze_domain(std::string const& domains, int& count, std::vector<std::string> const& from,
                   std::vector<std::string> const& subject, std::vector<std::string>& kept_from,
                   std::vector<std::string>& kept_subject, std::vector<std::size_t>* accepted)
{
    std::vector<std::string> entries;
    split_domain(domains, entries);

    int kept = 0;
    for (int i = 0; i < count; ++i) {
        auto const mail = static_cast<std::size_t>(i);
        if (find_domain(from[mail], entries)) {
            kept_from.push_back(from[mail]);
            kept_subject.push_back(subject[mail]);
            if (accepted != nullptr) {
                accepted->push_back(mail);
            }
            ++kept;
        }
    }
    count = kept;
    return 0;
}

int split_domain(std::string const& domains, std::vector<std::string>& entries)
{
    if (domains.empty()) {
        trace_msg("warning:no domain");
        entries.clear();
        return 0;
    }
    return smtpmsg_split_address(domains, entries);
}

bool find_domain(std::string const& sender, std::vector<std::string> const& entries)
{
    auto const accepts = [&](std::string const& entry) { return find_domain_ok(sender, entry); };
    if (std::any_of(entries.begin(), entries.end(), accepts)) {
        trace_msg("found !! %s");
        return true;
    }
    trace_msg("bad from address !!");
    return false;
}

bool find_domain_ok(std::string const& sender, std::string const& entry)
{
    // Anywhere in the domain, and an empty entry in any: deliberate, see docs/ODDITIES.md.
    if (get_domain(sender).find(entry) == std::string::npos) {
        return false;
    }
    trace_msg("found in %s");
    return true;
}

std::string get_domain(std::string const& sender)
{
    std::size_t const at = sender.find('@');
    if (at == std::string::npos) {
        trace_msg("error: no item");
        return {};
    }
    std::string const domain = sender.substr(at + 1);
    return domain.substr(0, domain.find('>'));
}

}  // namespace zelieml
