#include "tools/mailserver/session.h"

#include <algorithm>
#include <utility>

#include "tools/mailserver/text.h"

namespace zelieml::mailserver
{

namespace
{

// RFC 4954 asks for lines of 12288 bytes in an authentication exchange; no other is longer.
constexpr std::size_t max_line_bytes = 12288;

// A client that goes on for so long without a line end means no good.
constexpr std::size_t hopeless_line_bytes = std::size_t{1} << 20U;

}  // namespace

service::service(options o)
    : settings(std::move(o)),
      store(settings.maildir.empty() ? make_memory_store() : make_maildir_store(settings.maildir)),
      faults(settings.faults)
{
}

void service::show(transcript_line const& line)
{
    std::lock_guard<std::mutex> hold(hooks);
    settings.on_line(line);
}

void service::deliver(mail const& m)
{
    store->add(m.text);
    if (settings.on_mail) {
        std::lock_guard<std::mutex> hold(hooks);
        settings.on_mail(m);
    }
}

void service::session_ended()
{
    if (settings.on_session_end) {
        std::lock_guard<std::mutex> hold(hooks);
        settings.on_session_end();
    }
}

session::session(service& shared, stream& peer, unsigned number, protocol which)
    : shared_(shared), peer_(peer), number_(number), which_(which)
{
}

void session::run()
{
    note_event("C: (connects)");
    if (begin_step("greeting")) {
        greet();
    } else if (!over_) {
        close();
    }
    std::string line;
    while (!over_ && hear(line)) {
        std::string_view  argument = line;
        std::string const verb     = upper(take_word(argument));
        obey(verb, argument);
    }
}

bool session::begin_step(std::string_view step)
{
    fault_ = shared_.faults.take(which_, step);
    if (!fault_) {
        return true;
    }
    switch (fault_->what) {
    case fault::action::refuse: {
        std::string const text = std::move(fault_->text);
        fault_.reset();
        reply(text.empty() ? plain_refusal() : text);
        return false;
    }
    case fault::action::close:
        close();
        return false;
    case fault::action::reset:
        note_event("S: (resets)");
        peer_.break_when_closed();
        over_ = true;
        return false;
    case fault::action::silent:
        fall_silent();
        return false;
    case fault::action::delay:
    case fault::action::trickle:
    case fault::action::cut:
        return true;
    }
    return true;
}

void session::reply(std::string_view line)
{
    reply_lines(std::string(line) + "\r\n");
}

void session::reply_lines(std::string_view lines, bool is_mail)
{
    bool const cut = fault_ && fault_->what == fault::action::cut;
    if (cut) {
        lines = lines.substr(0, static_cast<std::size_t>(fault_->amount));
    }
    note_reply(lines, is_mail);

    auto const pause   = std::chrono::milliseconds(fault_ ? fault_->amount : 0);
    bool       sent    = true;
    bool const trickle = fault_ && fault_->what == fault::action::trickle;
    if (fault_ && fault_->what == fault::action::delay) {
        sent = !shared_.stop.wait(pause);
    }
    while (trickle && sent && lines.size() > 1) {
        sent = peer_.write(lines.substr(0, 1)) && !shared_.stop.wait(pause);
        lines.remove_prefix(1);
    }
    if (!sent || !peer_.write(lines)) {
        over_ = true;
    } else if (cut) {
        close();
    }
}

void session::close()
{
    note_event("S: (closes)");
    over_ = true;
}

void session::note_reply(std::string_view lines, bool is_mail)
{
    note('S', is_mail ? take_line(lines) : lines);
    if (!is_mail || !shared_.settings.on_line) {
        return;
    }
    mail_lines shown(*this, 'S');
    while (!lines.empty()) {
        std::string_view const line = take_line(lines);
        if (line == ".\r\n") {
            shown.finish();
            note('S', line);
        } else {
            shown.line(line);
        }
    }
}

bool session::hear(std::string& line)
{
    std::size_t length = 0;
    line.clear();
    for (;;) {
        stream::piece const heard = peer_.read_line();
        length += heard.text.size();
        if (length <= max_line_bytes) {
            line += heard.text;
        }
        if (heard.what == stream::arrival::silent) {
            reply(idle_for_too_long());
            close();
            return false;
        }
        if (heard.what == stream::arrival::closed || length > hopeless_line_bytes) {
            note('C', line);
            note_event("C: (closes)");
            over_ = true;
            return false;
        }
        if (!ends_with(heard.text, "\n")) {
            continue;
        }
        note('C', line);
        if (length <= max_line_bytes) {
            line.resize(without_line_end(line).size());
            return true;
        }
        reply(line_too_long());
        if (over_) {
            return false;
        }
        length = 0;
        line.clear();
    }
}

bool session::hear_text(std::string& text, bool& too_long)
{
    mail_lines shown(*this, 'C');
    // Dots count after CR LF only: a bare LF neither ends the text nor hides a dot (RFC 5321,
    // 2.3.8). A line may come in pieces, so the last byte of one is kept for the next.
    bool line_begins = true;
    char last        = '\0';
    text.clear();
    too_long = false;
    for (;;) {
        stream::piece const heard = peer_.read_line();
        if (heard.what != stream::arrival::line) {
            shown.finish();
            note('C', heard.text);
            note_event(heard.what == stream::arrival::closed ? "C: (closes)" : "C: (silent)");
            over_ = true;
            return false;
        }
        std::string_view line = heard.text;
        if (line_begins && line == ".\r\n") {
            shown.finish();
            note('C', line);
            return true;
        }
        shown.line(line);
        bool const ends_now = ends_with(line, "\r\n") || (last == '\r' && line == "\n");
        last                = line.back();
        if (line_begins && line.front() == '.') {
            line.remove_prefix(1);
        }
        line_begins = ends_now;
        too_long    = too_long || text.size() + line.size() > shared_.settings.max_mail_bytes;
        if (too_long) {
            text.clear();
        } else {
            text += line;
        }
    }
}

void session::fall_silent()
{
    note_event("S: (silent)");
    stream::piece heard;
    do {
        heard = peer_.read_line();
        note('C', heard.text);
    } while (heard.what == stream::arrival::line);
    note_event(heard.what == stream::arrival::closed ? "C: (closes)" : "C: (silent)");
    over_ = true;
}

void session::note_event(std::string_view event)
{
    if (shared_.settings.on_line) {
        shared_.show({number_, which_, std::string(event)});
    }
}

void session::note(char who, std::string_view text)
{
    if (!shared_.settings.on_line) {
        return;
    }
    while (!text.empty()) {
        std::string_view const line  = take_line(text);
        bool const             whole = ends_with(line, "\r\n");
        shared_.show({number_, which_,
                      std::string(1, who) + (whole ? ": " : "- ") +
                          visible(whole ? without_line_end(line) : line)});
    }
}

void session::mail_lines::line(std::string_view text)
{
    std::size_t const limit = owner_.shared_.settings.shown_mail_lines;
    if (limit == 0 || lines_ < limit) {
        owner_.note(who_, text);
    } else {
        ++hidden_;
    }
    ++lines_;
}

void session::mail_lines::finish()
{
    if (hidden_ > 0) {
        owner_.note_event("# " + std::to_string(hidden_) + " more lines");
    }
}

}  // namespace zelieml::mailserver
