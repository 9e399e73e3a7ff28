// transcript.h - the language of scripted_server.h, understood
//
// scripted_server.h says what the statements mean.

#ifndef ZELIEML_TESTS_SUPPORT_TRANSCRIPT_H
#define ZELIEML_TESTS_SUPPORT_TRANSCRIPT_H

#include <string>
#include <string_view>
#include <vector>

namespace zelieml::test
{

// A string with its placeholders.
class pattern
{
public:
    // Understands escapes and placeholders. Throws std::invalid_argument.
    explicit pattern(std::string_view text = "");

    // Appends bytes that mean themselves.
    void append(std::string const& bytes);

    bool has_any() const { return has(part::kind::any); }
    bool has_host() const { return has(part::kind::host); }

    // With {host} replaced and {any} left out.
    std::string bytes(std::string const& host) const;

    // The same for a reader, {any} left as it is.
    std::string shown(std::string const& host) const;

    bool matches(std::string_view text, std::string const& host) const;

private:
    struct part {
        enum class kind {
            literal,
            host,
            any,
        };
        kind        what;
        std::string text;
    };

    bool has(part::kind what) const;

    std::vector<part> parts_;
};

struct statement {
    enum class kind {
        says,         // text, as often as amount says
        says_later,   // text, together with what is said next
        trickles,     // amount: ms
        delays,       // amount: ms
        half_closes,  //
        closes,       //
        resets,       //
        hears_line,   // text, without CR LF
        hears_bytes,  // text
        hears_mail,   //
        hears_close,  //
        connects,     // parts two connections; in no conversation
    };

    kind        what;
    pattern     text   = pattern();
    int         amount = 1;
    std::string where  = {};  // "line 3", or "transcript 2, line 3"

    // As a line of scripted_server::expected(); only for what the client does.
    std::string shown(std::string const& host) const;
};

using conversation = std::vector<statement>;

// The connections of one or several transcripts, in order. Every one ends with closes, resets or a
// hears_close with nothing to be heard after it. Throws std::invalid_argument, quoting the line.
std::vector<conversation> parse_transcripts(std::vector<std::string> const& transcripts);

}  // namespace zelieml::test

#endif
