// trust.cpp - whether a server's certificate is trusted
//
// The system says whether it is. Which purposes and names a certificate is for is looked up once
// more: versions of the system differ in which purposes they take for a server's, in what they take
// for an address, and in where they look for one.

#include "plugins/tls/secure_transport/trust.h"

#include <algorithm>
#include <ctime>
#include <mutex>
#include <new>
#include <vector>

#include "plugins/tls/failure.h"
#include "plugins/tls/secure_transport/certificate.h"
#include "plugins/tls/secure_transport/status_text.h"

namespace zelieml::tls
{

namespace
{

using platform::cf_owner;

void check(OSStatus status)
{
    require_success(status, "the certificate cannot be checked");
}

bool is_trusted(SecTrustRef trust, cf_owner<SecPolicyRef> const& policy)
{
    SecTrustResultType result = kSecTrustResultInvalid;
    if (!policy) {
        throw std::bad_alloc();
    }
    check(::SecTrustSetPolicies(trust, policy.get()));
    check(::SecTrustEvaluate(trust, &result));
    return result == kSecTrustResultUnspecified || result == kSecTrustResultProceed;
}

// The policy for servers: of this host, or of any when it is empty.
cf_owner<SecPolicyRef> server_policy(std::string const& host)
{
    cf_owner<CFStringRef> const name(
        !host.empty()
            ? ::CFStringCreateWithCString(kCFAllocatorDefault, host.c_str(), kCFStringEncodingUTF8)
            : nullptr);
    return cf_owner<SecPolicyRef>(host.empty() || name ? ::SecPolicyCreateSSL(1, name.get())
                                                       : nullptr);
}

// The server's own first, up to one that cannot be read.
std::vector<certificate> chain_of(SecTrustRef trust)
{
    std::vector<certificate> chain;
    CFIndex const            count = ::SecTrustGetCertificateCount(trust);
    for (CFIndex i = 0; i < count; ++i) {
        certificate               read;
        SecCertificateRef const   shown = ::SecTrustGetCertificateAtIndex(trust, i);
        cf_owner<CFDataRef> const der(shown != nullptr ? ::SecCertificateCopyData(shown) : nullptr);
        if (!der) {
            throw std::bad_alloc();
        }
        if (!read_certificate(
                std::string(reinterpret_cast<char const*>(::CFDataGetBytePtr(der.get())),
                            static_cast<std::size_t>(::CFDataGetLength(der.get()))),
                read)) {
            break;
        }
        chain.push_back(read);
    }
    return chain;
}

// "20260131235959" as "2026-01-31"
std::string day(std::string const& time)
{
    return time.substr(0, 4) + "-" + time.substr(4, 2) + "-" + time.substr(6, 2);
}

std::string now()
{
    char         text[32] = "";
    time_t const when     = std::time(nullptr);
    tm           date     = {};
    if (::gmtime_r(&when, &date) != nullptr) {
        std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &date);
    }
    return text;
}

// Which certificate of a chain is not valid today; empty when all are.
std::string of_validity(std::vector<certificate> const& chain)
{
    std::string const today = now();
    for (certificate const& each : chain) {
        std::string const whose = &each == &chain.front() ? "" : "the certificate of its issuer ";
        if (each.until < today) {
            return whose + "expired on " + day(each.until);
        }
        if (each.from > today) {
            return whose + "not valid before " + day(each.from);
        }
    }
    return "";
}

std::string of_names(certificate const& own)
{
    constexpr std::size_t most = 3;
    std::string           all;
    for (std::size_t i = 0; i < own.hosts.size() && i < most; ++i) {
        all += (i == 0 ? "" : ", ") + own.hosts[i];
    }
    return all.empty() ? "it is for another host" : "it is for " + all;
}

std::string of_issuer(certificate const& own, authorities const& by)
{
    std::string const issuer = !own.issuer_name.empty() ? own.issuer_name : "an unknown issuer";
    if (std::find(by.subjects.begin(), by.subjects.end(), own.issuer) != by.subjects.end()) {
        return "not signed by the authority that it names, " + issuer;
    }
    return own.issuer == own.subject ? "self-signed, by none of the trusted authorities"
                                     : "issued by an unknown authority, " + issuer;
}

constexpr char other_purpose[] = "it is not for servers";

// What the system says of the last evaluation.
std::string in_other_words(SecTrustRef trust)
{
    cf_owner<CFArrayRef> const all(::SecTrustCopyProperties(trust));
    CFIndex const              count = all ? ::CFArrayGetCount(all.get()) : 0;
    for (CFIndex i = 0; i < count; ++i) {
        auto const properties =
            static_cast<CFDictionaryRef>(::CFArrayGetValueAtIndex(all.get(), i));
        void const* const error = ::CFDictionaryGetValue(properties, kSecPropertyTypeError);
        bool const is_known     = error != nullptr && ::CFGetTypeID(error) == ::CFStringGetTypeID();
        std::string const text  = is_known ? utf8_of(static_cast<CFStringRef>(error)) : "";
        if (!text.empty()) {
            return text;
        }
    }
    return "not valid";
}

// One question after the other, each with a policy that asks for more.
std::string why_not(SecTrustRef trust, authorities const& by)
{
    std::vector<certificate> const chain = chain_of(trust);
    if (chain.empty()) {
        return in_other_words(trust);
    }
    std::string const validity = of_validity(chain);
    if (!validity.empty()) {
        return validity;
    }
    if (!is_trusted(trust, cf_owner<SecPolicyRef>(::SecPolicyCreateBasicX509()))) {
        return of_issuer(chain.front(), by);
    }
    if (!chain.front().is_for_servers) {
        return other_purpose;
    }
    return is_trusted(trust, server_policy("")) ? of_names(chain.front()) : in_other_words(trust);
}

// Never destroyed: a thread may need it while the process exits.
std::mutex& one_at_a_time()
{
    static auto& one = *new std::mutex;
    return one;
}

}  // namespace

// Apple's reference wants these functions called by one thread at a time.
void require_trust(SecTrustRef trust, std::string const& host, authorities const& by)
{
    std::lock_guard<std::mutex> const held(one_at_a_time());
    check(::SecTrustSetNetworkFetchAllowed(trust, 0));
    if (by.certificates) {
        check(::SecTrustSetAnchorCertificates(trust, by.certificates.get()));
        check(::SecTrustSetAnchorCertificatesOnly(trust, 1));
    }
    std::string const refused = "the certificate of " + host + " is not trusted: ";
    if (!is_trusted(trust, server_policy(host))) {
        throw failure{eml_cause_tls, refused + why_not(trust, by)};
    }
    std::vector<certificate> const chain = chain_of(trust);
    if (chain.empty()) {
        throw failure{eml_cause_tls, refused + "it cannot be read"};
    }
    if (!chain.front().is_for_servers) {
        throw failure{eml_cause_tls, refused + other_purpose};
    }
    if (!is_for(chain.front(), host)) {
        throw failure{eml_cause_tls, refused + of_names(chain.front())};
    }
}

}  // namespace zelieml::tls
