// written_server.h - a server for what is said before TLS, all of whose lines are written beforehand

#ifndef ZELIEML_TESTS_TLS_WRITTEN_SERVER_H
#define ZELIEML_TESTS_TLS_WRITTEN_SERVER_H

#include <string>
#include <utility>

#include "plugins/tls/clear_talk.h"
#include "plugins/tls/failure.h"

namespace zelieml::test
{

// Says what it was given, and keeps what it hears.
class written_server final : public tls::clear_channel
{
public:
    explicit written_server(std::string says) : says_(std::move(says)) {}

    void expect(char const* command) override { command_ = command; }

    std::string read_line() override
    {
        std::size_t const end = says_.find('\n');
        if (end == says_.npos) {
            throw tls::failure{eml_cause_lost, "no more after " + command_};
        }
        std::string const line = says_.substr(0, end + 1);
        says_.erase(0, end + 1);
        return line;
    }

    void write_line(std::string const& line) override { heard += line; }
    bool has_more() override { return !says_.empty(); }

    std::string heard;

private:
    std::string says_;
    std::string command_;
};

}  // namespace zelieml::test

#endif
