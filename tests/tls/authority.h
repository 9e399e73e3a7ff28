// authority.h - certificates, made on the spot

#ifndef ZELIEML_TESTS_TLS_AUTHORITY_H
#define ZELIEML_TESTS_TLS_AUTHORITY_H

#include <memory>
#include <string>
#include <vector>

namespace zelieml::test
{

// A certificate and its key, in PEM.
struct identity {
    std::string certificate;
    std::string key;
};

// What a certificate is for; days count from today.
struct wanted_certificate {
    std::vector<std::string> hosts     = {"mail.test"};
    std::vector<std::string> addresses = {"127.0.0.1"};
    int                      from_day  = -1;
    int                      until_day = 1;
    std::vector<std::string> purposes  = {"1.3.6.1.5.5.7.3.1"};  // servers; none: it says nothing
};

class authority
{
public:
    explicit authority(std::string const& name = "Test Authority", int until_day = 100);
    ~authority();
    authority(authority const&)            = delete;
    authority& operator=(authority const&) = delete;

    // Its own certificate, in PEM.
    std::string certificate() const;

    identity issue(wanted_certificate const& wanted = {}) const;

private:
    struct made;
    std::unique_ptr<made> made_;
};

// A certificate that nobody else has signed.
identity self_signed(wanted_certificate const& wanted = {});

// The day of a certificate as a reason names it, days from today.
std::string day_in(int days);

}  // namespace zelieml::test

#endif
