// analyze.h - which received mails come from an allowed domain
//
// Each entry is searched case-sensitively, as a substring, in what follows the "@" of the sender
// line. So the entry "example.com" also accepts "mail.example.com", "notexample.com" and
// "example.com.other.net", but not "EXAMPLE.COM". An empty entry accepts every mail. Deliberate,
// see docs/ODDITIES.md.
//
// Any thread: no shared state.

#ifndef ZELIEML_LIBRECEIVE_ANALYZE_H
#define ZELIEML_LIBRECEIVE_ANALYZE_H

#include <cstddef>
#include <string>
#include <vector>

namespace zelieml
{

// analyze_domain - keep the mails whose sender is in an allowed domain
//
// domains        entries separated by commas; all blanks are removed
// count          in: how many mails; out: how many were accepted
// from, subject  header lines of the mails, count entries each
// kept_from, kept_subject  the lines of the accepted mails are appended, in order
// accepted       the places of the accepted mails are appended; null when they are not wanted
//
// Returns 0.
int analyze_domain(std::string const& domains, int& count, std::vector<std::string> const& from,
                   std::vector<std::string> const& subject, std::vector<std::string>& kept_from,
                   std::vector<std::string>& kept_subject,
                   std::vector<std::size_t>* accepted = nullptr);

// The steps of analyze_domain.

// split_domain - split a list of domains
//
// domains  as above
// entries  receives the entries without blanks, empty ones included; emptied first. An empty list
//          has no entries.
//
// Returns 0.
int split_domain(std::string const& domains, std::vector<std::string>& entries);

// find_domain - whether one of the entries accepts a sender line
bool find_domain(std::string const& sender, std::vector<std::string> const& entries);

// find_domain_ok - whether this entry accepts a sender line
bool find_domain_ok(std::string const& sender, std::string const& entry);

// get_domain - the domain of a sender line
//
// Returns what follows the first "@", up to the next ">" or the end of the line; an empty string
// when there is no "@".
std::string get_domain(std::string const& sender);

}  // namespace zelieml

#endif
