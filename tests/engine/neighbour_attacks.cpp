#include "tests/engine/neighbour_attacks.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <iterator>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/linux/refuse_descriptors.h"
#include "support/unique_fd.h"
#include "tests/support/files.h"
#include "tests/support/skip.h"
#include "tests/support/workplace.h"
#include "zelieml.h"

namespace zelieml::test
{

namespace
{

constexpr char his_text[]        = "subject: his\nto: anna@b.test\nreplyto: r\nHis own.\n";
constexpr int  many              = 100000;
constexpr int  most_fds_per_mail = 253;  // that Linux takes with a datagram

bool make_file(std::string const& path, char const* text = his_text)
{
    return static_cast<bool>(std::ofstream(path) << text << std::flush);
}

bool make_sparse(std::string const& path, off_t size)
{
    return make_file(path) && ::truncate(path.c_str(), size) == 0;
}

bool announce(std::string const& path)
{
    return eml_post_message_file_with_stocksymbol(path.c_str(), "symbol") == 0;
}

// Frees a name of his own for something else.
void remove_own(std::string const& path)
{
    std::remove(path.c_str());
}

bool link_to(std::string const& to, std::string const& path)
{
    remove_own(path);
    return ::symlink(to.c_str(), path.c_str()) == 0;
}

constexpr char const* planted[] = {"his.sme", "his2.sme", "his3.sme"};

bool plant_links(target const& t)
{
    return link_to(t.secret, t.file("his.sme")) && link_to(t.roots, t.file("his2.sme")) &&
           link_to(t.open, t.file("his3.sme"));
}

bool plant_links_that_lead_nowhere(target const& t)
{
    return link_to(t.elsewhere, t.file("his.sme")) &&
           link_to(t.file("his3.sme"), t.file("his2.sme")) &&
           link_to(t.file("his2.sme"), t.file("his3.sme"));
}

bool plant_links_to_other_things(target const& t)
{
    return link_to("/dev/zero", t.file("his.sme")) && link_to(t.folder, t.file("his2.sme")) &&
           link_to("/proc/self/mem", t.file("his3.sme"));
}

bool plant_second_names(target const& t)
{
    remove_own(t.file("his.sme"));
    remove_own(t.file("his2.sme"));
    remove_own(t.file("his3"));
    return ::link(t.open.c_str(), t.file("his.sme").c_str()) == 0 && make_file(t.file("his3")) &&
           ::link(t.file("his3").c_str(), t.file("his2.sme").c_str()) == 0;
}

bool make_pipe(std::string const& path)
{
    remove_own(path);
    return ::mkfifo(path.c_str(), 0666) == 0 && ::chmod(path.c_str(), 0666) == 0;
}

// Holds descriptors until the attacker ends.
std::vector<unique_fd>& held()
{
    static std::vector<unique_fd> descriptors;
    return descriptors;
}

bool plant_pipes(target const& t)
{
    if (!make_pipe(t.file("his.sme")) || !make_pipe(t.file("his2.sme"))) {
        return false;
    }
    held().emplace_back(::open(t.file("his2.sme").c_str(), O_RDWR));
    return ::write(held().back().get(), his_text, sizeof his_text - 1) > 0;
}

// A longer name than fits is cut off, and leads nowhere.
sockaddr_un address_of(std::string const& name)
{
    sockaddr_un address = {};
    address.sun_family  = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

bool bind_to(unique_fd const& socket, std::string const& directory, std::string const& name)
{
    sockaddr_un const address = address_of(name);
    return ::chdir(directory.c_str()) == 0 &&
           ::bind(socket.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
}

bool plant_sockets(target const& t)
{
    remove_own(t.file("his.sme"));
    held().emplace_back(::socket(AF_UNIX, SOCK_STREAM, 0));
    return bind_to(held().back(), t.work, "his.sme") && ::listen(held().back().get(), 1) == 0;
}

bool plant_directories(target const& t)
{
    ::mkdir(t.file("his.sme").c_str(), 0777);
    ::mkdir(t.file("his2.sme").c_str(), 0777);
    return make_file(t.file("his2.sme/kept.sme"));
}

bool plant_empty_and_closed_files(target const& t)
{
    return make_file(t.file("his.sme"), "") && make_file(t.file("his2.sme")) &&
           ::chmod(t.file("his2.sme").c_str(), 0) == 0;
}

bool plant_huge_files(target const& t)
{
    return make_sparse(t.file("his.sme"), off_t{5} << 30U) &&
           make_sparse(t.file("his2.sme"), (off_t{64} << 20U) + 1);
}

bool plant_odd_names(target const& t)
{
    return make_file(t.file("his\r\n.sme")) && make_file(t.file("his\x1b[2J\xff.sme.tmp")) &&
           make_file(t.file(".sme")) && make_file(t.file(std::string(240, 'x') + ".sme"));
}

// Not by all file systems, and an administrator can forbid them.
bool are_leases_given()
{
    temp_dir const  place;
    unique_fd const fd(::open(place.file("leased").c_str(), O_RDWR | O_CREAT, 0600));
    return ::fcntl(fd.get(), F_SETLEASE, F_WRLCK) == 0;
}

// Whoever opens a file with a lease waits until it is given up, up to 45 s.
bool plant_leases(target const& t)
{
    ::signal(SIGIO, SIG_IGN);
    make_file(t.file("his.sme"));
    held().emplace_back(::open(t.file("his.sme").c_str(), O_RDWR));
    return ::fcntl(held().back().get(), F_SETLEASE, F_WRLCK) == 0;
}

// The links that wait where the next posts look for unused names.
bool take_names_of_posts(target const& t)
{
    bool all = true;
    for (int second = 0; second < seconds_taken; ++second) {
        std::tm const now = platform::local_time(platform::wall_seconds() + second);
        char          name[64];
        std::snprintf(name, sizeof name, "%04d%02d%02d%02d%02d%02d-%08d-%04d.sme",
                      now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min,
                      now.tm_sec, platform::wall_microseconds(), static_cast<int>(::getppid()));
        all = all && link_to(second % 2 == 0 ? t.elsewhere : t.secret, t.file(name));
    }
    return all;
}

// Whether somebody who may not can change what has a name.
bool can_change(std::string const& path, std::string const& replacement)
{
    return std::rename(replacement.c_str(), path.c_str()) == 0 ||
           std::rename(path.c_str(), (path + "-moved").c_str()) == 0 ||
           ::truncate(path.c_str(), 0) == 0 || ::chmod(path.c_str(), 0777) == 0 ||
           std::remove(path.c_str()) == 0;
}

// The names of what is not his, in the directories that he can write to.
bool lay_hands_on_what_is_not_his(target const& t)
{
    int tried = 0;
    for (std::string const& directory : {t.work, t.shared}) {
        if (::access(directory.c_str(), W_OK) != 0) {
            continue;
        }
        for (std::string const& name : list_directory(directory)) {
            std::string const path  = directory + "/" + name;
            std::string const mine  = directory + "/mine";
            struct stat       named = {};
            if (::lstat(path.c_str(), &named) == 0 && named.st_uid != t.where.attacker) {
                ++tried;
                if (!make_file(mine, private_text) || can_change(path, mine)) {
                    return false;
                }
                remove_own(mine);
            }
        }
    }
    return tried >= 2;
}

// ----- settings

bool plant_huge_settings(target const& t)
{
    return make_sparse(t.file(settings_name), off_t{4} << 30U);
}

bool plant_a_pipe_as_settings(target const& t)
{
    return make_pipe(t.file(settings_name));
}

bool plant_a_link_to_a_device_as_settings(target const& t)
{
    return link_to("/dev/zero", t.file(settings_name));
}

bool plant_a_directory_as_settings(target const& t)
{
    return ::mkdir(t.file(settings_name).c_str(), 0777) == 0 &&
           make_file(t.file(settings_name) + std::string("/x"));
}

bool plant_leased_settings(target const& t)
{
    ::signal(SIGIO, SIG_IGN);
    held().emplace_back(::open(t.file(settings_name).c_str(), O_RDWR | O_CREAT, 0644));
    return ::fcntl(held().back().get(), F_SETLEASE, F_WRLCK) == 0;
}

bool plant_links_beside_the_settings(target const& t)
{
    return link_to(t.secret, t.file("zelismes.cf.tmp")) &&
           link_to(t.roots, t.file("zelismes.cf.bak"));
}

bool plant_dangling_links_beside_the_settings(target const& t)
{
    return link_to(t.elsewhere, t.file("zelismes.cf.tmp")) &&
           link_to(t.elsewhere, t.file("zelismes.cf.bak"));
}

// A file that he holds open, and locked: he would read what is written to it.
bool plant_an_open_file_beside_the_settings(target const& t)
{
    std::string const path = t.file("zelismes.cf.tmp");
    held().emplace_back(::open(path.c_str(), O_RDWR | O_CREAT, 0666));
    ::fchmod(held().back().get(), 0666);
    return ::flock(held().back().get(), LOCK_EX) == 0;
}

bool plant_pipes_beside_the_settings(target const& t)
{
    return make_pipe(t.file("zelismes.cf.tmp")) && make_pipe(t.file("zelismes.cf.bak"));
}

bool plant_directories_beside_the_settings(target const& t)
{
    ::mkdir(t.file("zelismes.cf.tmp").c_str(), 0777);
    return make_file(t.file("zelismes.cf.tmp/x"));
}

bool put_links_beside_the_settings_again(target const& t)
{
    std::string const path = t.file("zelismes.cf.tmp");
    if (::symlink(t.secret.c_str(), path.c_str()) == 0) {
        std::remove(path.c_str());
    }
    return true;
}

// ----- locks

bool lock_all(target const& t)
{
    struct flock range = {};
    range.l_type       = F_RDLCK;
    for (std::string const& name : list_directory(t.work)) {
        unique_fd fd(::open(t.file(name).c_str(), O_RDONLY | O_NONBLOCK));
        if (fd && ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0) {
            ::fcntl(fd.get(), F_SETLK, &range);
            held().push_back(std::move(fd));
        }
    }
    ::usleep(100);
    return true;
}

// ----- exchanges while files are announced, opened and read

// A name that has not been used for a while: an engine attempts one that failed only once in half an
// hour. Few enough for the queue.
std::string next_file(target const& t)
{
    static int count = 0;
    return t.file("his" + std::to_string(count++ % 100) + ".sme");
}

// One round: his file is announced, and then something else has its name. The engine may have
// deleted either by then.
bool announce_and_put(target const& t, std::function<bool(std::string const&)> const& put)
{
    std::string const path  = next_file(t);
    std::string const aside = t.file("aside");
    remove_own(aside);  // which a second name may still be
    bool const made = make_file(aside);
    std::rename(aside.c_str(), path.c_str());
    bool const announced = announce(path);
    bool const ready     = put(aside);
    std::rename(aside.c_str(), path.c_str());
    return made && announced && ready;
}

bool exchange_for_links(target const& t)
{
    return announce_and_put(t, [&](std::string const& path) { return link_to(t.secret, path); });
}

bool exchange_for_pipes(target const& t)
{
    return announce_and_put(t, make_pipe);
}

// Of a file of his own: where others' files are safe from him, so are second names of them.
bool exchange_for_second_names(target const& t)
{
    return announce_and_put(t, [&](std::string const& path) {
        std::string const twin = t.file("twin");
        remove_own(path);
        return make_file(twin) && ::link(twin.c_str(), path.c_str()) == 0;
    });
}

bool exchange_for_directories(target const& t)
{
    std::string const path = next_file(t);
    remove_own(path);
    bool const made = make_file(path) && announce(path);
    remove_own(path);
    return made && ::mkdir(path.c_str(), 0777) == 0;
}

bool truncate_and_delete(target const& t)
{
    static std::string const body(std::size_t{256} << 10U, 'x');
    std::string const        path = next_file(t);
    bool const               made = make_file(path, (his_text + body).c_str()) && announce(path);
    ::truncate(path.c_str(), 100);
    remove_own(path);
    return made;
}

// Around the size up to which others' files are read.
bool grow_without_end(target const& t)
{
    static off_t const piece = off_t{1} << 20U;
    static std::string path;
    static off_t       size = 0;
    if (size == 0 || size > 80 * piece) {
        std::string const aside = t.file("aside");
        remove_own(path);
        path = next_file(t);
        size = 63 * piece;
        return make_sparse(aside, size) && std::rename(aside.c_str(), path.c_str()) == 0 &&
               announce(path);
    }
    size += piece;
    ::truncate(path.c_str(), size);
    return true;
}

// The folder on the way to his file becomes a link to one of the victim's, with the same name in it.
bool exchange_the_folder(target const& t)
{
    std::string const way   = t.file("way");
    std::string const aside = t.file("aside");
    remove_own(way);
    remove_own(aside + "/kept.sme");
    remove_own(aside);
    return ::mkdir(way.c_str(), 0777) == 0 && make_file(way + "/kept.sme") &&
           announce(way + "/kept.sme") && std::rename(way.c_str(), aside.c_str()) == 0 &&
           link_to(t.folder, way) && announce(way + "/kept.sme") &&
           announce(aside + "/../way/kept.sme");
}

// ----- datagrams

// A datagram as a post makes it.
std::string notification_of(std::string const& path)
{
    std::string datagram;
    for (std::string const& text : {std::string("zelieml_notifyname"), std::string("symbol"),
                                    std::string("new_mail_file_path"), path}) {
        datagram += text + '\0';
    }
    return datagram;
}

// Sends a datagram to all sockets in the place for all users.
//
// type, data  of what is sent beside it; nothing when data is empty
//
// Returns how many took it.
int send_beside(target const& t, std::string const& datagram, int type, std::string const& data)
{
    int taken = 0;
    if (::chdir(t.shared.c_str()) != 0) {
        return -1;
    }
    for (std::string const& name : list_directory(".")) {
        sockaddr_un       address = address_of(name);
        std::vector<char> control(CMSG_SPACE(data.size()));
        iovec             bytes   = {const_cast<char*>(datagram.data()), datagram.size()};
        msghdr            message = {};
        message.msg_name          = &address;
        message.msg_namelen       = sizeof address;
        message.msg_iov           = &bytes;
        message.msg_iovlen        = 1;
        if (!data.empty()) {
            message.msg_control    = control.data();
            message.msg_controllen = control.size();
            cmsghdr* const head    = CMSG_FIRSTHDR(&message);
            head->cmsg_level       = SOL_SOCKET;
            head->cmsg_type        = type;
            head->cmsg_len         = CMSG_LEN(data.size());
            std::memcpy(CMSG_DATA(head), data.data(), data.size());
        }
        unique_fd const socket(::socket(AF_UNIX, SOCK_DGRAM, 0));
        int const       large = 1 << 20;
        ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &large, sizeof large);
        timeval const limit = {0, 200000};
        ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        taken += ::sendmsg(socket.get(), &message, MSG_NOSIGNAL) >= 0 ? 1 : 0;
    }
    return taken;
}

int send_raw(target const& t, std::string const& datagram)
{
    return send_beside(t, datagram, 0, "");
}

bool forge_senders(target const& t)
{
    std::string const wanted = notification_of(t.secret);
    for (uid_t const user : {root_id, t.where.victim}) {
        for (pid_t const process : {::getpid(), ::getppid(), 1}) {
            ucred const forged = {process, user, user};
            if (send_beside(t, wanted, SCM_CREDENTIALS,
                            std::string(reinterpret_cast<char const*>(&forged), sizeof forged)) >
                0) {
                return false;
            }
        }
    }
    return send_raw(t, wanted) > 0;
}

bool announce_what_is_not_his(target const& t)
{
    bool all = true;
    for (std::string const& path :
         {t.secret, t.roots, t.open, t.folder + "/kept.sme", t.file(settings_name), t.file("kept"),
          t.work, std::string("/"), std::string("/dev/zero"), std::string("/proc/self/environ"),
          std::string("."), std::string(""), std::string("his.sme"), "/proc/self/root" + t.secret,
          t.work + "/../" + t.secret.substr(t.secret.rfind('/') + 1), t.secret + "/",
          std::string(5000, '/') + t.secret}) {
        all = all && send_raw(t, notification_of(path)) > 0;
    }
    for (std::string const& name : messages_in(t.work)) {
        all = all && send_raw(t, notification_of(t.file(name))) > 0;
    }
    return all;
}

bool send_broken_datagrams(target const& t)
{
    std::string const whole = notification_of(t.secret);
    bool              all   = send_raw(t, "") > 0;
    for (std::size_t size = 1; size < whole.size(); size += 3) {
        all = all && send_raw(t, whole.substr(0, size)) > 0;
    }
    for (std::size_t const size : {65536U, 65537U, 200000U}) {
        all = all && send_raw(t, whole + std::string(size, 'x')) > 0 &&
              send_raw(t, std::string(size, '\0')) > 0;
    }
    return all && send_raw(t, whole + whole) > 0;
}

// Linux refuses them since 6.16, on behalf of a receiver who does not want them; before, it takes
// them as long as there are not too many on their way.
int send_descriptors(target const& t, std::vector<int> const& fds)
{
    return send_beside(
        t, notification_of(t.secret), SCM_RIGHTS,
        std::string(reinterpret_cast<char const*>(fds.data()), fds.size() * sizeof(int)));
}

bool attach_descriptors(target const& t)
{
    for (int i = 0; i < 20; ++i) {
        send_descriptors(t, {0});
        send_descriptors(t, std::vector<int>(most_fds_per_mail, 0));
    }
    return send_raw(t, "x") > 0;
}

// A socket that waits on its last close for what its other end never reads.
unique_fd lingering_socket()
{
    unique_fd const door(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in     address = {};
    socklen_t       size    = sizeof address;
    auto* const     generic = reinterpret_cast<sockaddr*>(&address);
    address.sin_family      = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(door.get(), generic, size);
    ::listen(door.get(), 1);
    ::getsockname(door.get(), generic, &size);
    unique_fd near(::socket(AF_INET, SOCK_STREAM, 0));
    ::connect(near.get(), generic, size);
    held().emplace_back(::accept(door.get(), nullptr, nullptr));
    char const bytes[65536] = {};
    while (::send(near.get(), bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
    }
    linger const an_hour = {1, 3600};
    ::setsockopt(near.get(), SOL_SOCKET, SO_LINGER, &an_hour, sizeof an_hour);
    return near;
}

// On older systems the attack works, as documented.
bool can_refuse_descriptors()
{
    unique_fd const socket(::socket(AF_UNIX, SOCK_DGRAM, 0));
    return platform::refuse_descriptors(socket.get());
}

// A path that takes long to resolve.
std::string tedious_path()
{
    std::string path;
    while (path.size() < 3900) {
        path += "/proc/self/root";
    }
    return path + "/x.sme";
}

// The reader is busy when the descriptor comes, so that its last close is the reader's.
bool attach_a_lingering_socket(target const& t)
{
    unique_fd lingering = lingering_socket();
    for (int i = 0; i < 8; ++i) {
        send_raw(t, notification_of(tedious_path()));
    }
    if (send_descriptors(t, {lingering.get()}) == 0) {
        linger const no_more = {0, 0};  // not taken: this process would wait itself
        ::setsockopt(lingering.get(), SOL_SOCKET, SO_LINGER, &no_more, sizeof no_more);
    }
    return true;
}

bool flood(target const& t)
{
    static unique_fd const socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0));
    std::string const      datagram = notification_of(t.secret);
    if (::chdir(t.shared.c_str()) != 0) {
        return false;
    }
    for (std::string const& name : list_directory(".")) {
        sockaddr_un const address = address_of(name);
        for (int i = 0; i < 1000; ++i) {
            ::sendto(socket.get(), datagram.data(), datagram.size(), 0,
                     reinterpret_cast<sockaddr const*>(&address), sizeof address);
        }
    }
    return true;
}

// What the names of the sockets for the engine's stock symbol begin with.
std::string socket_start()
{
    std::uint64_t hash = 14695981039346656037U;  // FNV-1a
    for (char const c : std::string("symbol")) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    }
    char text[18];
    std::snprintf(text, sizeof text, "%016llx-", static_cast<unsigned long long>(hash));
    return text;
}

// Where he may put sockets that posters find.
std::string reachable_place(target const& t)
{
    if (!t.where.shared) {
        ::mkdir(t.his.c_str(), 0700);
    }
    return t.where.shared ? t.shared : t.his;
}

// Sockets for the engine's symbol that take nothing more.
bool put_full_sockets(target const& t)
{
    for (int i = 0; i < 30; ++i) {
        std::string const name    = socket_start() + std::to_string(i) + ".sock";
        sockaddr_un const address = address_of(name);
        held().emplace_back(::socket(AF_UNIX, SOCK_DGRAM, 0));
        if (!bind_to(held().back(), reachable_place(t), name) || ::chmod(name.c_str(), 0666) != 0) {
            return false;
        }
        unique_fd const sender(::socket(AF_UNIX, SOCK_DGRAM, 0));
        while (::sendto(sender.get(), "x", 1, MSG_DONTWAIT,
                        reinterpret_cast<sockaddr const*>(&address), sizeof address) == 1) {
        }
    }
    return true;
}

// Things with the names of sockets that are none, or dead.
bool put_what_is_no_socket(target const& t)
{
    std::string const start = reachable_place(t) + "/" + socket_start();
    remove_own(start + "dead.sock");
    held().emplace_back(::socket(AF_UNIX, SOCK_DGRAM, 0));
    bool const dead = bind_to(held().back(), reachable_place(t), socket_start() + "dead.sock");
    held().pop_back();
    ::mkdir((start + "folder.sock").c_str(), 0777);
    return dead && link_to(t.secret, start + "link.sock") &&
           link_to("/dev/log", start + "device.sock") &&
           link_to(start + "loop.sock", start + "loop.sock") && make_pipe(start + "pipe.sock") &&
           make_file(start + "file.sock") && make_file(start + "file.new") &&
           link_to(t.secret, start + "link.new");
}

// ----- the victim's own place is taken, which for root's he cannot do

bool took_it_unless_roots(target const& t, int status)
{
    return (status == 0) == (t.where.victim != root_id);
}

bool take_the_place_by_a_file(target const& t)
{
    return took_it_unless_roots(t, make_file(t.own) ? 0 : -1);
}

bool take_the_place_by_a_link(target const& t)
{
    return took_it_unless_roots(t, ::symlink(t.folder.c_str(), t.own.c_str()));
}

bool take_the_place_by_a_directory(target const& t)
{
    return took_it_unless_roots(t, ::mkdir(t.own.c_str(), 0700));
}

bool take_the_place_by_an_open_directory(target const& t)
{
    int const status = ::mkdir(t.own.c_str(), 0777);
    ::chmod(t.own.c_str(), 0777);
    return took_it_unless_roots(t, status);
}

// ----- very many names

bool make_many(std::string const& start, std::string const& end, bool directories)
{
    for (int i = 0; i < many; ++i) {
        std::string const path = start + std::to_string(i) + end;
        bool const        made = directories ? ::mkdir(path.c_str(), 0777) == 0
                                             : ::mknod(path.c_str(), S_IFREG | 0666, 0) == 0;
        if (!made && errno != EEXIST) {
            return false;
        }
    }
    return true;
}

bool crowd_work_with_files(target const& t)
{
    return make_many(t.file("his"), ".sme", false);
}

bool crowd_work_with_directories(target const& t)
{
    return make_many(t.file("his"), ".sme", true);
}

bool crowd_place_with_files(target const& t)
{
    return make_many(t.shared + "/" + socket_start(), ".sock", false);
}

bool crowd_place_with_directories(target const& t)
{
    return make_many(t.shared + "/" + socket_start(), ".sock", true);
}

bool crowd_tmp_with_directories(target const& t)
{
    return make_many(t.tmp + "/.zelieml-1", "", true);
}

bool announce_too_many(target const& t)
{
    bool all = true;
    for (int i = 0; i < 600; ++i) {
        std::string const path = t.file("his" + std::to_string(i) + ".sme");
        all                    = all && make_sparse(path, (off_t{64} << 20U) + 1) && announce(path);
    }
    return all;
}

// ----- where attacks make sense

need const place_for_all    = {[](scene const& where) { return where.shared; },
                               "no other user's socket can be reached without it"};
need const no_place_for_all = {[](scene const& where) { return !where.shared; },
                               "users' own places are for engines without it"};
need const read_by_posters  = {
     [](scene const& where) { return where.shared || where.victim == root_id; },
     "nobody but root looks into another user's own place"};
need const few_scenes = {[](scene const& where) {
                             return where.shared && where.mode == 01777 && where.attacker == 65534;
                         },
                         "it is the number or the size that counts, and it takes long"};

need const places = {
    [](scene const& /*where*/) { return has_backend("linux"); },
    "only on Linux do notifications need files, and no other user reaches the fake"};

// ----- what root gives beforehand

bool make_device(target const& t)
{
    std::string const path = t.file("device");
    return ::mknod(path.c_str(), S_IFCHR | 0666, makedev(1, 5)) == 0 &&
           ::chmod(path.c_str(), 0666) == 0 &&
           ::chown(path.c_str(), t.where.attacker, t.where.attacker) == 0;
}

// What is planted before the start is deleted there.
bool put_the_device(target const& t)
{
    return std::rename(t.file("device").c_str(), t.file("his.sme").c_str()) == 0 &&
           announce(t.file("his.sme"));
}

bool remove_settings(target const& t)
{
    return std::remove(t.file(settings_name).c_str()) == 0;
}

}  // namespace

attack& attack::on_linux()
{
    return only_with(places);
}

attack& attack::makes_many()
{
    crowds = true;
    return only_with(few_scenes);
}

bool announce_planted(target const& t)
{
    return std::all_of(std::begin(planted), std::end(planted),
                       [&](char const* name) { return announce(t.file(name)); });
}

std::vector<attack> attacks()
{
    return {
        attack("links to private files").plants(plant_links),
        attack("links that lead nowhere").plants(plant_links_that_lead_nowhere),
        attack("links to devices and directories").plants(plant_links_to_other_things),
        attack("second names of files").plants(plant_second_names),
        attack("pipes").plants(plant_pipes),
        attack("sockets").plants(plant_sockets),
        attack("directories").plants(plant_directories),
        attack("a device without end")
            .given(make_device, "the system makes no devices")
            .does(put_the_device),
        attack("empty and closed files").plants(plant_empty_and_closed_files).gets(mails_of_his),
        attack("huge files").plants(plant_huge_files),
        attack("odd names").plants(plant_odd_names).gets(mails_of_his),
        attack("leases on files")
            .plants(plant_leases)
            .if_possible(are_leases_given, "this system gives no leases"),
        attack("the names of the next posts").does(take_names_of_posts).gets(failing_posts),
        attack("hands on what is not his").does(lay_hands_on_what_is_not_his),

        attack("huge settings")
            .given(remove_settings)
            .prepares(plant_huge_settings)
            .gets(no_settings),
        attack("a pipe as settings")
            .given(remove_settings)
            .prepares(plant_a_pipe_as_settings)
            .gets(no_settings),
        attack("a link to a device as settings")
            .given(remove_settings)
            .prepares(plant_a_link_to_a_device_as_settings)
            .gets(no_settings),
        attack("a directory as settings")
            .given(remove_settings)
            .prepares(plant_a_directory_as_settings)
            .gets(no_settings),
        attack("leased settings")
            .given(remove_settings)
            .prepares(plant_leased_settings)
            .if_possible(are_leases_given, "this system gives no leases")
            .gets(no_settings),
        attack("links beside the settings").plants(plant_links_beside_the_settings),
        attack("dangling links beside the settings")
            .plants(plant_dangling_links_beside_the_settings),
        attack("an open file beside the settings").does(plant_an_open_file_beside_the_settings),
        attack("pipes beside the settings").plants(plant_pipes_beside_the_settings),
        attack("directories beside the settings")
            .plants(plant_directories_beside_the_settings)
            .gets(no_new_setting),
        attack("links beside the settings that come back")
            .repeats(put_links_beside_the_settings_again)
            .gets(no_new_setting),

        attack("locks held for ever").repeats(lock_all).gets(late_look),

        attack("exchanges for links").repeats(exchange_for_links).gets(mails_of_his),
        attack("exchanges for pipes").repeats(exchange_for_pipes).gets(mails_of_his),
        attack("exchanges for second names").repeats(exchange_for_second_names).gets(mails_of_his),
        attack("exchanges for directories").repeats(exchange_for_directories).gets(mails_of_his),
        attack("exchanges of the folder on the path").repeats(exchange_the_folder),
        attack("truncates and deletes").repeats(truncate_and_delete).gets(mails_of_his),
        attack("grows without end")
            .repeats(grow_without_end)
            .gets(mails_of_his | large_memory)
            .only_with(few_scenes),

        attack("forged senders").does(forge_senders).only_with(place_for_all).on_linux(),
        attack("announces what is not his")
            .does(announce_what_is_not_his)
            .only_with(place_for_all)
            .on_linux(),
        attack("broken datagrams").does(send_broken_datagrams).only_with(place_for_all).on_linux(),
        attack("descriptors attached").does(attach_descriptors).only_with(place_for_all).on_linux(),
        attack("a lingering socket attached")
            .does(attach_a_lingering_socket)
            .if_possible(can_refuse_descriptors, "this Linux cannot refuse descriptors")
            .only_with(place_for_all)
            .on_linux(),
        attack("a flood of datagrams")
            .repeats(flood)
            .gets(deaf_engine)
            .only_with(place_for_all)
            .on_linux(),
        attack("too many announcements")
            .does(announce_too_many)
            .only_with(place_for_all)
            .on_linux(),
        attack("full sockets").does(put_full_sockets).only_with(read_by_posters).on_linux(),
        attack("what is no socket")
            .plants(put_what_is_no_socket)
            .only_with(read_by_posters)
            .on_linux(),

        attack("the place taken by a file")
            .prepares(take_the_place_by_a_file)
            .gets(no_start)
            .only_with(no_place_for_all)
            .on_linux(),
        attack("the place taken by a link")
            .prepares(take_the_place_by_a_link)
            .gets(no_start)
            .only_with(no_place_for_all)
            .on_linux(),
        attack("the place taken by a directory")
            .prepares(take_the_place_by_a_directory)
            .gets(no_start)
            .only_with(no_place_for_all)
            .on_linux(),
        attack("the place taken by an open directory")
            .prepares(take_the_place_by_an_open_directory)
            .gets(no_start)
            .only_with(no_place_for_all)
            .on_linux(),

        attack("very many files")
            .plants(crowd_work_with_files)
            .gets(crowded_look | large_memory)
            .makes_many(),
        attack("very many directories")
            .plants(crowd_work_with_directories)
            .gets(crowded_look | large_memory)
            .makes_many(),
        attack("very many files in the place")
            .prepares(crowd_place_with_files)
            .makes_many()
            .gets(deaf_engine)
            .on_linux(),
        attack("very many directories in the place")
            .prepares(crowd_place_with_directories)
            .makes_many()
            .gets(deaf_engine)
            .on_linux(),
        attack("very many directories like users places")
            .prepares(crowd_tmp_with_directories)
            .makes_many()
            .on_linux(),
    };
}

}  // namespace zelieml::test
