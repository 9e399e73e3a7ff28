#include "tests/support/mail_server.h"

namespace zelieml::test
{

mail_server::mail_server(mailserver::options const& options) : server_(with_hooks(options)) {}

mailserver::options mail_server::with_hooks(mailserver::options options)
{
    options.on_line = [this](mailserver::transcript_line const& line) {
        std::lock_guard<std::mutex> hold(guard_);
        if (sessions_.size() < line.session) {
            sessions_.resize(line.session);
        }
        sessions_[line.session - 1] += line.text + "\n";
    };
    options.on_mail = [this](mailserver::mail const& m) {
        std::lock_guard<std::mutex> hold(guard_);
        mails_.push_back(m);
        changed_.notify_all();
    };
    options.on_session_end = [this] {
        std::lock_guard<std::mutex> hold(guard_);
        ++ended_;
        changed_.notify_all();
    };
    return options;
}

std::vector<mailserver::mail> mail_server::mails() const
{
    std::lock_guard<std::mutex> hold(guard_);
    return mails_;
}

bool mail_server::wait_for_mails(std::size_t count, std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> hold(guard_);
    return changed_.wait_for(hold, limit, [&] { return mails_.size() >= count; });
}

void mail_server::put(std::string const& text)
{
    server_.store().add(text);
}

std::vector<std::string> mail_server::mailbox()
{
    std::vector<std::string> result;
    for (auto const& entry : server_.store().list()) {
        result.push_back(server_.store().read(entry.id).value_or(""));
    }
    return result;
}

std::vector<std::string> mail_server::sessions() const
{
    std::unique_lock<std::mutex> hold(guard_);
    changed_.wait_for(hold, std::chrono::seconds(20),
                      [this] { return ended_ == sessions_.size(); });
    return sessions_;
}

}  // namespace zelieml::test
