#include "tests/support/fake_resolver.h"

#include <arpa/inet.h>
#include <map>
#include <mutex>

#include "platform/resolver.h"

namespace
{

std::mutex                           guard;
std::map<std::string, std::uint32_t> hosts;
std::vector<std::string>             questions;

}  // namespace

namespace zelieml
{

bool platform::resolve_ipv4(char const* name, std::uint32_t& address)
{
    std::lock_guard<std::mutex> hold(guard);
    questions.emplace_back(name);
    in_addr_t const dotted = ::inet_addr(name);
    if (dotted != INADDR_NONE) {
        address = dotted;
        return true;
    }
    auto found = hosts.find(name);
    if (found == hosts.end()) {
        found = hosts.find("*");
    }
    if (found == hosts.end()) {
        return false;
    }
    address = found->second;
    return true;
}

void test::add_host(std::string const& name, std::string const& dotted_address)
{
    std::lock_guard<std::mutex> hold(guard);
    hosts[name] = ::inet_addr(dotted_address.c_str());
}

void test::clear_hosts()
{
    std::lock_guard<std::mutex> hold(guard);
    hosts.clear();
    questions.clear();
}

std::vector<std::string> test::looked_up_names()
{
    std::lock_guard<std::mutex> hold(guard);
    return questions;
}

}  // namespace zelieml
