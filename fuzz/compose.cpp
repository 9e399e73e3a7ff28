// compose.cpp - composing mails from message files
//
// The input is a byte, whether the settings want an encoded subject, and a message file. The mail is
// compared with a model, and decoded.

#include <vector>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/mail_text.h"
#include "fuzz/support/scarce_memory.h"
#include "fuzz/support/scratch.h"
#include "libbase64/libbase64.h"
#include "libmsg/libmsg.h"
#include "libsendw/smtpmsg.h"
#include "libtimew/libtimew.h"
#include "tests/libsendw/compose_model.h"

using namespace zelieml;
using fuzz::require;

namespace
{

std::string joined(std::vector<std::string> const& pieces)
{
    std::string text;
    for (std::string const& piece : pieces) {
        text += piece;
    }
    return text;
}

// Base64 in lines of at most 76 characters, which decode to the body of the record.
void check_utf8_body(std::string const& body, std::string const& before)
{
    std::size_t start = 0;
    while (start < body.size()) {
        std::size_t end = body.find("\r\n", start);
        end             = end == std::string::npos ? body.size() : end;
        require(end - start <= 76, "a line of a UTF-8 body has at most 76 characters");
        start = end + 2;
    }
    int                 length = -1;
    base64_buffer const decoded(
        base64_decode_ex(reinterpret_cast<unsigned char const*>(body.data()),
                         static_cast<int>(body.size()), &length));
    require(decoded != nullptr && std::string(reinterpret_cast<char const*>(decoded.get()),
                                              static_cast<std::size_t>(length)) == before,
            "a UTF-8 body decodes to what was in the message");
}

// Lines that end in CR LF, and the dots of SMTP, without which it is the body of the record.
void check_jis_body(std::string const& body, std::string const& before)
{
    std::string original, lone_breaks_mended;
    for (std::size_t i = 0; i < body.size(); ++i) {
        bool const pair = body.compare(i, 2, "\r\n") == 0;
        require(pair || (body[i] != '\r' && body[i] != '\n'),
                "an ISO-2022-JP body has no lone CR or LF");
        bool const at_start = i == 0 || body[i - 1] == '\n';
        if (at_start && body[i] == '.') {
            require(body.compare(i, 2, "..") == 0, "a dot that opens a line is doubled");
            continue;
        }
        original += pair ? "\r\n" : body.substr(i, 1);
        i += pair ? 1 : 0;
    }
    for (std::size_t i = 0; i < before.size(); ++i) {
        bool const pair  = before.compare(i, 2, "\r\n") == 0;
        bool const alone = !pair && (before[i] == '\r' || before[i] == '\n');
        lone_breaks_mended += pair || alone ? "\r\n" : before.substr(i, 1);
        i += pair ? 1 : 0;
    }
    require(original == lone_breaks_mended, "an ISO-2022-JP body says what was in the message");
}

void check_headers(std::vector<std::string> const& pieces, std::size_t headers)
{
    for (std::size_t i = 0; i < headers; ++i) {
        std::string const& header = pieces[i];
        for (std::size_t lf = header.find('\n'); lf != std::string::npos;
             lf             = header.find('\n', lf + 1)) {
            require(lf > 0 && header[lf - 1] == '\r', "a header line ends in CR LF");
            require(lf + 1 == header.size() || header[lf + 1] == ' ',
                    "a header goes on with a space only");
        }
        // To without an address is left out.
        require(header.empty() || header.back() == '\n', "a header ends");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::no_descriptor_left const guard;
    fuzz::input                    input(data, size);
    fuzz::scratch_file const       settings("zelismes.cf");
    fuzz::scratch_file const       file("mail.sme");
    bool const                     encoded_subject = input.byte() % 2 == 1;
    std::string const              lines =
        std::string("subject_use_encoding = ") + (encoded_subject ? "yes" : "no") + "\r\n";
    settings.write(lines);
    file.write(input.rest());

    void*                loaded = nullptr;
    int const            result = msg_load(&loaded, file.path());
    message_holder const msg(loaded);
    require(result == 0, "a message file can be loaded");
    test::message     m      = test::get_all(msg.get());
    std::string const before = m.body;
    std::string const date   = itimew().get_format_date();

    std::vector<std::string>  pieces   = {"what was there before"};
    int                       composed = 0;
    fuzz::memory_result const memory   = fuzz::with_memory(input.memory(), [&] {
        composed = smtpmsg_create_multiline(msg.get(), pieces, settings.path());
    });
    require(composed == 0, "any message can be composed");
    // An ISO-2022-JP body for which there is no memory to convert it keeps its dots.
    require(memory != fuzz::memory_result::sufficed || fuzz::ends_only_at_its_end(joined(pieces)),
            "no text ends a mail early");
    if (memory == fuzz::memory_result::threw) {
        return 0;
    }

    std::size_t const headers =
        8U + (m.header[3].empty() ? 0U : 1U) + (m.header[6].empty() ? 0U : 1U);
    require(pieces.size() == headers + 2 && pieces[headers] == "\r\n",
            "a mail is its headers, an empty line and its body");
    check_headers(pieces, headers);
    if (memory == fuzz::memory_result::ran_out) {
        return 0;
    }
    require(pieces == test::model_mail(m, lines, date), "a mail is composed as the model says");
    require(test::get_all(msg.get()) == m, "the record holds what the model says");
    if (m.header[0] == "ISO-2022-JP") {
        check_jis_body(pieces.back(), before);
    } else {
        check_utf8_body(pieces.back(), before);
    }
    return 0;
}
