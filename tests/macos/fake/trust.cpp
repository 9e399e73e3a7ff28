// trust.cpp - certificates, policies and trust of the Security framework, by GnuTLS

#include "tests/macos/fake/trust.h"

#include <Security/Security.h>
#include <arpa/inet.h>
#include <cstring>
#include <ctime>
#include <gnutls/x509.h>

#include "tests/macos/fake/fake.h"
#include "tests/macos/fake/object.h"

using namespace zelieml::fake;

CFStringRef const kSecPropertyTypeError = CFSTR("error");

namespace
{

constexpr double most_days = 825;
constexpr double day_s     = 24 * 60 * 60;

struct certificate_object : object {
    static constexpr kind what = kind::certificate;
    static constexpr auto name = "NSObject";

    ~certificate_object() { gnutls_x509_crt_deinit(read); }

    bytes             der;
    gnutls_x509_crt_t read = nullptr;
};

struct policy_object : object {
    static constexpr kind what = kind::policy;
    static constexpr auto name = "NSObject";

    bool for_servers = false;
    text host;  // empty for any
};

struct trust_object : object {
    static constexpr kind what = kind::trust;
    static constexpr auto name = "NSObject";

    ~trust_object()
    {
        for (certificate_object* const each : chain) {
            CFRelease(each);
        }
        for (CFTypeRef const held : {policy, anchors}) {
            if (held != nullptr) {
                CFRelease(held);
            }
        }
    }

    list<certificate_object*> chain;
    CFTypeRef                 policy     = nullptr;
    CFTypeRef                 anchors    = nullptr;
    bool                      only       = true;
    bool                      network    = true;
    bool                      evaluated  = false;
    bool                      has_anchor = false;  // in its chain, if there is one
    text                      fault;
};

// Null for what is none.
certificate_object* make_certificate(void const* data, std::size_t size)
{
    auto* const          made  = make<certificate_object>();
    auto const* const    first = static_cast<unsigned char const*>(data);
    gnutls_datum_t const der   = {const_cast<unsigned char*>(first), static_cast<unsigned>(size)};
    made->der.assign(first, first + size);
    if (gnutls_x509_crt_init(&made->read) != 0 ||
        gnutls_x509_crt_import(made->read, &der, GNUTLS_X509_FMT_DER) != 0) {
        CFRelease(made);
        return nullptr;
    }
    return made;
}

// Whether the next name of a kind is there; size is that of the name then.
bool next_name(certificate_object const& own, unsigned index, unsigned& type, char (&name)[256],
               std::size_t& size)
{
    size = sizeof name;
    int const status =
        gnutls_x509_crt_get_subject_alt_name2(own.read, index, name, &size, &type, nullptr);
    return status >= 0;
}

bool has_names(certificate_object const& own)
{
    char        name[256];
    std::size_t size = 0;
    unsigned    type = 0;
    return next_name(own, 0, type, name, size);
}

// An address: among the addresses, and among the names.
bool names_address(certificate_object const& own, text const& host)
{
    char        name[256];
    std::size_t size    = 0;
    unsigned    type    = 0;
    in_addr     address = {};
    ::inet_aton(host.c_str(), &address);
    for (unsigned i = 0; next_name(own, i, type, name, size); ++i) {
        if ((type == GNUTLS_SAN_IPADDRESS && size == sizeof address &&
             std::memcmp(name, &address, size) == 0) ||
            (type == GNUTLS_SAN_DNSNAME && text(name, size) == host)) {
            return true;
        }
    }
    return false;
}

// Also by the purpose of servers with stronger algorithms.
bool is_for_servers(certificate_object const& own)
{
    char        purpose[64];
    std::size_t size = sizeof purpose;
    for (unsigned i = 0;
         gnutls_x509_crt_get_key_purpose_oid(own.read, i, purpose, &size, nullptr) == 0; ++i) {
        if (std::strcmp(purpose, GNUTLS_KP_TLS_WWW_SERVER) == 0 ||
            std::strcmp(purpose, "2.16.840.1.113730.4.1") == 0) {
            return true;
        }
        size = sizeof purpose;
    }
    return false;
}

// What the policy for servers has against a certificate.
text against(certificate_object const& own, policy_object const& policy)
{
    double const days = std::difftime(gnutls_x509_crt_get_expiration_time(own.read),
                                      gnutls_x509_crt_get_activation_time(own.read)) /
                        day_s;
    if (!is_for_servers(own) || !has_names(own) || days > most_days) {
        return "the certificate is not standards compliant";
    }
    in_addr    address    = {};
    bool const is_address = ::inet_aton(policy.host.c_str(), &address) != 0;
    bool const is_named =
        policy.host.empty() ||
        (is_address ? names_address(own, policy.host)
                    : gnutls_x509_crt_check_hostname(own.read, policy.host.c_str()) != 0);
    return is_named ? "" : "the host name does not match";
}

// What is wrong with the signatures and the days of a chain.
text against(trust_object const& trust)
{
    gnutls_x509_trust_list_t list_of_anchors = nullptr;
    gnutls_x509_trust_list_init(&list_of_anchors, 0);
    if (trust.anchors == nullptr) {
        gnutls_x509_trust_list_add_system_trust(list_of_anchors, 0, 0);
    }
    auto const    anchors = static_cast<CFArrayRef>(trust.anchors);
    CFIndex const count   = anchors != nullptr ? CFArrayGetCount(anchors) : 0;
    for (CFIndex i = 0; i < count; ++i) {
        gnutls_x509_trust_list_add_cas(
            list_of_anchors,
            &as<certificate_object>(CFArrayGetValueAtIndex(anchors, i), "anchors")->read, 1, 0);
    }
    list<gnutls_x509_crt_t> chain;
    for (certificate_object const* const each : trust.chain) {
        chain.push_back(each->read);
    }
    unsigned status = 0;
    gnutls_x509_trust_list_verify_crt(list_of_anchors, chain.data(),
                                      static_cast<unsigned>(chain.size()), 0, &status, nullptr);
    // Anchors belong to their array, those of the system to the list.
    gnutls_x509_trust_list_deinit(list_of_anchors, trust.anchors == nullptr ? 1 : 0);
    return status == 0 ? "" : "the certificate is not trusted";
}

// An evaluated chain ends in its anchor, also where the server does not send it, or it has expired.
void add_anchor(trust_object& trust)
{
    auto const    anchors = static_cast<CFArrayRef>(trust.anchors);
    CFIndex const count = anchors != nullptr && !trust.chain.empty() ? CFArrayGetCount(anchors) : 0;
    for (CFIndex i = 0; i < count; ++i) {
        auto* const             last   = trust.chain.back();
        void const* const       anchor = CFArrayGetValueAtIndex(anchors, i);
        gnutls_x509_crt_t const own    = as<certificate_object>(anchor, "anchors")->read;
        unsigned                status = 0;
        if (gnutls_x509_crt_equals(last->read, own) == 0 &&
            gnutls_x509_crt_verify(last->read, &own, 1,
                                   GNUTLS_VERIFY_DISABLE_TIME_CHECKS |
                                       GNUTLS_VERIFY_DISABLE_TRUSTED_TIME_CHECKS,
                                   &status) == 0 &&
            status == 0) {
            trust.chain.push_back(as<certificate_object>(CFRetain(anchor), "anchors"));
            return;
        }
    }
}

policy_object* make_policy()
{
    return may_create() ? make<policy_object>() : nullptr;
}

}  // namespace

SecTrustRef zelieml::fake::make_trust(gnutls_datum_t const* shown, unsigned count)
{
    auto* const made = make<trust_object>();
    for (unsigned i = 0; i < count; ++i) {
        certificate_object* const each = make_certificate(shown[i].data, shown[i].size);
        if (each != nullptr) {
            made->chain.push_back(each);
        }
    }
    return reinterpret_cast<SecTrustRef>(made);
}

SecCertificateRef SecCertificateCreateWithData(CFAllocatorRef /*allocator*/, CFDataRef data)
{
    bytes const& der = as<data_object>(data, "SecCertificateCreateWithData")->content;
    return may_create()
               ? reinterpret_cast<SecCertificateRef>(make_certificate(der.data(), der.size()))
               : nullptr;
}

CFDataRef SecCertificateCopyData(SecCertificateRef certificate)
{
    bytes const& der = as<certificate_object>(certificate, "SecCertificateCopyData")->der;
    return may_create() ? reinterpret_cast<CFDataRef>(make_data(der.data(), der.size())) : nullptr;
}

SecPolicyRef SecPolicyCreateBasicX509(void)
{
    return reinterpret_cast<SecPolicyRef>(make_policy());
}

SecPolicyRef SecPolicyCreateSSL(Boolean server, CFStringRef hostname)
{
    constexpr char function[] = "SecPolicyCreateSSL";
    require_first_process(function);
    if (server == FALSE) {
        refuse(function, "the certificate of a client");
    }
    policy_object* const made = make_policy();
    if (made != nullptr) {
        made->for_servers = true;
        if (hostname != nullptr) {
            encode(*as<string_object>(hostname, function), kCFStringEncodingUTF8, made->host);
        }
    }
    return reinterpret_cast<SecPolicyRef>(made);
}

OSStatus SecTrustSetPolicies(SecTrustRef trust, CFTypeRef policies)
{
    constexpr char function[] = "SecTrustSetPolicies";
    auto* const    held       = as<trust_object>(trust, function);
    as<policy_object>(policies, function);
    if (!may_create()) {
        return errSecAllocate;
    }
    CFTypeRef const before = std::exchange(held->policy, CFRetain(policies));
    held->evaluated        = false;
    if (before != nullptr) {
        CFRelease(before);
    }
    return errSecSuccess;
}

OSStatus SecTrustSetAnchorCertificates(SecTrustRef trust, CFArrayRef anchors)
{
    constexpr char function[] = "SecTrustSetAnchorCertificates";
    auto* const    held       = as<trust_object>(trust, function);
    for (CFIndex i = 0; i < CFArrayGetCount(anchors); ++i) {
        as<certificate_object>(CFArrayGetValueAtIndex(anchors, i), function);
    }
    if (held->anchors != nullptr) {
        refuse(function, "twice");
    }
    if (!may_create()) {
        return errSecAllocate;
    }
    held->anchors = CFRetain(anchors);
    held->only    = false;
    return errSecSuccess;
}

OSStatus SecTrustSetAnchorCertificatesOnly(SecTrustRef trust, Boolean only)
{
    as<trust_object>(trust, "SecTrustSetAnchorCertificatesOnly")->only = only != FALSE;
    return errSecSuccess;
}

OSStatus SecTrustSetNetworkFetchAllowed(SecTrustRef trust, Boolean allowed)
{
    as<trust_object>(trust, "SecTrustSetNetworkFetchAllowed")->network = allowed != FALSE;
    return errSecSuccess;
}

OSStatus SecTrustEvaluate(SecTrustRef trust, SecTrustResultType* result)
{
    constexpr char function[] = "SecTrustEvaluate";
    auto* const    held       = as<trust_object>(trust, function);
    if (held->policy == nullptr || held->network || !held->only || result == nullptr) {
        refuse(function, "a trust that is not fully set up");
    }
    if (!may_create()) {
        return errSecAllocate;
    }
    auto const& policy = *as<policy_object>(held->policy, function);
    if (!std::exchange(held->has_anchor, true)) {
        add_anchor(*held);
    }
    held->evaluated = true;
    held->fault     = held->chain.empty() ? text("there is no certificate") : against(*held);
    if (held->fault.empty() && policy.for_servers) {
        held->fault = against(*held->chain.front(), policy);
    }
    *result =
        held->fault.empty() ? kSecTrustResultUnspecified : kSecTrustResultRecoverableTrustFailure;
    return errSecSuccess;
}

CFIndex SecTrustGetCertificateCount(SecTrustRef trust)
{
    return static_cast<CFIndex>(
        as<trust_object>(trust, "SecTrustGetCertificateCount")->chain.size());
}

SecCertificateRef SecTrustGetCertificateAtIndex(SecTrustRef trust, CFIndex index)
{
    constexpr char    function[] = "SecTrustGetCertificateAtIndex";
    auto const* const held       = as<trust_object>(trust, function);
    if (index < 0 || static_cast<std::size_t>(index) >= held->chain.size()) {
        refuse(function, "there is no such certificate");
    }
    return reinterpret_cast<SecCertificateRef>(held->chain[static_cast<std::size_t>(index)]);
}

CFArrayRef SecTrustCopyProperties(SecTrustRef trust)
{
    auto const* const held = as<trust_object>(trust, "SecTrustCopyProperties");
    if (!held->evaluated || !may_create()) {
        return nullptr;
    }
    CFMutableArrayRef const all = make_array();
    for (std::size_t i = 0; i < held->chain.size(); ++i) {
        CFMutableDictionaryRef const one = make_dictionary();
        if (i == 0 && !held->fault.empty()) {
            string_object* const fault =
                make_string(held->fault.data(), held->fault.size(), kCFStringEncodingUTF8);
            CFDictionarySetValue(one, kSecPropertyTypeError, fault);
            CFRelease(fault);
        }
        CFArrayAppendValue(all, one);
        CFRelease(one);
    }
    return all;
}
