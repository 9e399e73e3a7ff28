// message_model.h - the message file as docs/FORMATS.md describes it, in memory

#ifndef ZELIEML_TESTS_LIBMSG_MESSAGE_MODEL_H
#define ZELIEML_TESTS_LIBMSG_MESSAGE_MODEL_H

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "libmsg/libmsg.h"

namespace zelieml::test
{

// A message as the model sees it: the fields in the order of the file.
struct message {
    std::string header[7] = {"UTF-8", "", "", "", "", "", ""};
    std::string body;
};

char const* const keys[7] = {
    "encoding: ", "from: ", "to: ", "cc: ", "subject: ", "replyto: ", "messageid: "};

inline bool operator==(message const& a, message const& b)
{
    for (int i = 0; i < 7; ++i) {
        if (a.header[i] != b.header[i]) {
            return false;
        }
    }
    return a.body == b.body;
}

inline void PrintTo(message const& m, std::ostream* out)
{
    for (int i = 0; i < 7; ++i) {
        *out << "\n  " << keys[i] << testing::PrintToString(m.header[i]);
    }
    *out << "\n  body " << testing::PrintToString(m.body);
}

inline std::string without(char c, std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), c), text.end());
    return text;
}

inline std::string file_of(message const& m)
{
    std::string bytes;
    for (int i = 0; i < 7; ++i) {
        bool const optional = i == 3 || i == 6;
        if (!optional || m.header[i] != "") {
            bytes += without('\r', keys[i] + m.header[i]) + "\n";
        }
    }
    return bytes + without('\r', m.body);
}

inline message message_of(std::string const& bytes)
{
    message     m;
    std::size_t start = 0;
    for (;;) {
        std::size_t const end  = bytes.find('\n', start);
        std::string const line = bytes.substr(start, end == std::string::npos ? end : end - start);

        bool header = false;
        for (int i = 0; i < 7 && !header; ++i) {
            if (line.find(keys[i]) == 0) {
                m.header[i] = line.substr(std::string(keys[i]).size());
                header      = true;
            }
        }
        if (!header) {
            m.body += (m.body.empty() ? "" : "\r\n") + line;
        }
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    for (std::string& text : m.header) {
        text = text.substr(0, text.find('\0'));
    }
    m.body = m.body.substr(0, m.body.find('\0'));
    return m;
}

// CR LF for every line break; a string of nothing but lone breaks stays.
inline std::string stored_body(std::string const& text)
{
    std::string body;
    bool        lone_breaks_only = true;
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool const pair  = text.compare(i, 2, "\r\n") == 0;
        bool const alone = !pair && (text[i] == '\r' || text[i] == '\n');
        lone_breaks_only = lone_breaks_only && alone;
        body += pair || alone ? "\r\n" : std::string(1, text[i]);
        i += pair ? 1 : 0;
    }
    return lone_breaks_only ? text : body;
}

// What random files are made of: lines, and all that is nearly a header.
inline std::vector<std::string> const file_pieces = {"a",
                                                     "word ",
                                                     "\n",
                                                     "\n",
                                                     "\n",
                                                     "\r",
                                                     "\r\n",
                                                     " ",
                                                     "to: ",
                                                     "\nto: x",
                                                     "\ncc: ",
                                                     "\nfrom: f",
                                                     "From: ",
                                                     "\nencoding: E",
                                                     ":",
                                                     "\nsub",
                                                     "ject: s",
                                                     "replyto: ",
                                                     "\nreplyto: ",
                                                     "id: ",
                                                     "\xe3\x83\x88",
                                                     "\t",
                                                     "\nmess",
                                                     "ageid: 1",
                                                     "\nmessageid:",
                                                     "subject: s",
                                                     "\nt",
                                                     "\nto",
                                                     "\nx",
                                                     "\xff\x01",
                                                     ".",
                                                     "a line of some length "};

// The message in a record of the library.
inline message get_all(void* msg)
{
    message m;
    m.header[0] = msg_get_encoding(msg);
    m.header[1] = msg_get_from(msg);
    m.header[2] = msg_get_to(msg);
    m.header[3] = msg_get_cc(msg);
    m.header[4] = msg_get_subject(msg);
    m.header[5] = msg_get_replyto(msg);
    m.header[6] = msg_get_messageid(msg);
    m.body      = msg_get_body(msg);
    return m;
}

}  // namespace zelieml::test

#endif
