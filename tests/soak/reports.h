// reports.h - what the callbacks are told

#ifndef ZELIEML_TESTS_SOAK_REPORTS_H
#define ZELIEML_TESTS_SOAK_REPORTS_H

#include <string>

#include "tests/soak/server.h"
#include "tests/soak/texts.h"
#include "zelieml.h"

namespace zelieml::test
{

struct told {
    eml_send_e  code = eml_send_32_bits;
    std::string text;

    explicit told(void* record)
    {
        char buffer[256] = "(no text)";
        eml_cb_get_code(record, &code);
        eml_cb_get_message(record, buffer, sizeof buffer);
        text = buffer;
    }

    // A mail that was sent; its number.
    bool is_sent(unsigned& number) const
    {
        return code == eml_send_ok && find_number(text, reply_goodbye, number);
    }
    bool is_refused(unsigned& number) const
    {
        return code == eml_send_error_other && (find_number(text, reply_refused, number) ||
                                                find_number(text, reply_text_refused, number));
    }
    bool is_nameless_failure() const { return code == eml_send_error_other && text.empty(); }
    // Somebody was writing them.
    bool has_no_settings() const { return code == eml_send_error_connection && text.empty(); }
    std::string all() const { return std::to_string(code) + " " + text; }
};

}  // namespace zelieml::test

#endif
