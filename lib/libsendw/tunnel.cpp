// tunnel.cpp - connections to mail servers, with TLS where it is asked for

#include "libsendw/tunnel.h"

#include <cerrno>
#include <sys/socket.h>

#include "liblog/trace.h"
#include "libsendw/tls_plugin.h"
#include "platform/error_text.h"
#include "platform/plugin.h"
#include "platform/socket.h"
#include "support/attempt_note.h"
#include "support/step_names.h"
#include "support/unique_fd.h"

namespace zelieml
{

namespace
{

constexpr int reply_limit_ms     = 15 * 1000;
constexpr int handshake_limit_ms = 30 * 1000;

using opener = decltype(&zelieml_tls_open_1);

// The end of a tunnel. Closing would not end the tunnel while a forked child has a copy.
struct tunnel_end {
    unique_fd fd;

    ~tunnel_end() { ::shutdown(fd.get(), SHUT_RDWR); }
};

int fail(eml_cause cause, connect_steps const& steps, char const* why)
{
    trace_msg("error:TLS %s");
    note_failure(cause, steps.tls, "TLS: %s", why);
    return -1;
}

// What the plug-in says on the tunnel before anything else: whether there is TLS.
int wait_for_tls(int fd, connect_steps const& steps)
{
    char said[2] = {zelieml_tls_failed, eml_cause_lost};
    if (platform::receive_bytes(fd, said, 1) == 1 && said[0] == zelieml_tls_works) {
        return 0;
    }
    char        why[reason_capacity] = {};
    std::size_t size                 = 0;
    ssize_t     got                  = platform::receive_bytes(fd, said + 1, 1);
    while (got > 0 && size < sizeof why - 1) {
        got = platform::receive_bytes(fd, why + size, sizeof why - 1 - size);
        size += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    return fail(static_cast<eml_cause>(said[1]), steps,
                size == 0 ? "the connection was lost" : why);
}

}  // namespace

tls_mode tls_mode_of(std::string const& text)
{
    return text == "no"         ? tls_mode::none
           : text == "starttls" ? tls_mode::starttls
           : text == "tls"      ? tls_mode::tls
                                : tls_mode::unclear;
}

int tunnel_connect_host(char const* host, int port, tls_choice const* choice,
                        tunnel_protocol protocol, int& fd, connect_steps const& steps,
                        std::optional<std::string>* own_name)
{
    if (choice == nullptr || choice->mode == tls_mode::none) {
        return sock_connect_host(host, port, fd, steps);
    }
    if (choice->mode == tls_mode::unclear) {
        tunnel_note_unclear(*choice);
        return -1;
    }
    return sock_connect_host(host, port, fd, steps) == 0
               ? tunnel_start_tls(fd, host, *choice, protocol, steps, own_name)
               : -1;
}

int tunnel_start_tls(int& fd, char const* host, tls_choice const& choice, tunnel_protocol protocol,
                     connect_steps const& steps, std::optional<std::string>* own_name)
{
    unique_fd   plain(fd);
    std::string error;
    char const* name = "";
    if (choice.mode == tls_mode::starttls && protocol == tunnel_protocol::smtp) {
        name = own_name->emplace(get_hostname()).c_str();
    }
    fd              = -1;
    auto const open = reinterpret_cast<opener>(
        platform::load_function("zelieml-tls", "zelieml_tls_open_1", error));
    if (open == nullptr) {
        error.insert(0, "the plug-in cannot be loaded: ");
        return fail(eml_cause_tls, steps, error.c_str());
    }
    zelieml_tls_before const before = choice.mode == tls_mode::tls        ? zelieml_tls_nothing
                                      : protocol == tunnel_protocol::smtp ? zelieml_tls_smtp
                                                                          : zelieml_tls_pop;
    zelieml_tls_ask const    ask    = {
              host,           choice.ca_file.empty() ? nullptr : choice.ca_file.c_str(),
              name,           before,
              reply_limit_ms, handshake_limit_ms};
    tunnel_end tunnel{unique_fd(open(plain.release(), &ask))};
    if (!tunnel.fd) {
        int const cause = errno;
        return fail(cause == ENOMEM ? eml_cause_memory : eml_cause_unreachable, steps,
                    platform::error_text(cause).c_str());
    }
    if (wait_for_tls(tunnel.fd.get(), steps) != 0) {
        return -1;
    }
    fd = tunnel.fd.release();
    return 0;
}

void tunnel_note_unclear(tls_choice const& choice)
{
    trace_msg("error:TLS %s");
    if (choice.fault.empty()) {
        note_failure(eml_cause_memory, step_name::settings,
                     "TLS: there was no memory for the choice of the server record");
    } else {
        note_failure(eml_cause_settings, step_name::settings, "TLS: %s", choice.fault.c_str());
    }
}

}  // namespace zelieml
