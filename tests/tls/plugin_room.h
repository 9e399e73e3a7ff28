// plugin_room.h - a place in which a test has the plug-in by itself

#ifndef ZELIEML_TESTS_TLS_PLUGIN_ROOM_H
#define ZELIEML_TESTS_TLS_PLUGIN_ROOM_H

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>

#include "libsendw/sock.h"
#include "libsendw/tls_plugin.h"
#include "support/unique_fd.h"
#include "tests/support/files.h"
#include "tests/support/threads.h"
#include "tests/support/wait_until.h"
#include "tests/tls/authority.h"
#include "zelieml_ext.h"

namespace zelieml::test
{

constexpr int  far_off_ms = 20 * 1000;
constexpr auto a_minute   = std::chrono::minutes(1);  // longer than anybody waits for threads

inline authority const& ca()
{
    static authority const one;
    return one;
}

// A socket of the library.
inline unique_fd connected(std::uint16_t port)
{
    return unique_fd(sock_connect(htonl(INADDR_LOOPBACK), htons(port)));
}

// What the tunnel says, up to so many bytes or to its end.
inline std::string hear(unique_fd const& tunnel, std::size_t most = std::string::npos)
{
    std::string all;
    char        part[16384];
    while (all.size() < most) {
        std::size_t const room = std::min(most - all.size(), sizeof part);
        ssize_t const     got  = ::recv(tunnel.get(), part, room, 0);
        if (got <= 0) {
            break;
        }
        all.append(part, static_cast<std::size_t>(got));
    }
    return all;
}

// What a refusal is told as.
inline std::string refusal(eml_cause cause, std::string const& why)
{
    return "-" + std::string(1, static_cast<char>(cause)) + why;
}

inline std::string untrusted(std::string const& host, std::string const& why)
{
    return refusal(eml_cause_tls, "the certificate of " + host + " is not trusted: " + why);
}

// Nothing is left of a tunnel when its test is over.
class plugin_room : public testing::Test
{
protected:
    void SetUp() override
    {
        ca();
        write_file(ca_file, ca().certificate());
        descriptors_ = open_descriptors();
        std::thread([] {}).join();  // with the first one sanitizers start one of their own
        threads_ = running_threads();
    }

    void TearDown() override
    {
        EXPECT_TRUE(wait_until([this] { return open_descriptors() == descriptors_; }))
            << "descriptors left open";
        EXPECT_TRUE(wait_for_running_threads(threads_));
    }

    // A tunnel to a server.
    unique_fd ask(std::uint16_t port, std::string const& host = "mail.test",
                  zelieml_tls_before before = zelieml_tls_nothing, int limit_ms = far_off_ms)
    {
        return ask_over(connected(port), host, before, limit_ms);
    }

    unique_fd ask_over(unique_fd tcp, std::string const& host = "mail.test",
                       zelieml_tls_before before = zelieml_tls_nothing, int limit_ms = far_off_ms)
    {
        zelieml_tls_ask const asked = {host.c_str(), ca_file.c_str(), "me",
                                       before,       limit_ms,        limit_ms};
        return unique_fd(zelieml_tls_open_1(tcp.release(), &asked));
    }

    temp_dir          dir_;
    std::string const ca_file = dir_.path() + "/ca.pem";

private:
    int descriptors_ = 0;
    int threads_     = 0;
};

// A child of this process that has all its descriptors, until it is gone.
class child_that_waits
{
public:
    child_that_waits() : pid_(::fork())
    {
        if (pid_ == 0) {
            ::sleep(30);
            ::_exit(0);
        }
    }
    ~child_that_waits()
    {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    child_that_waits(child_that_waits const&)            = delete;
    child_that_waits& operator=(child_that_waits const&) = delete;

    bool is_there() const { return ::waitpid(pid_, nullptr, WNOHANG) == 0; }

private:
    pid_t pid_;
};

}  // namespace zelieml::test

#endif
