// line_writer.cpp - lines for somebody who may not read them

#include "tools/zelieml/line_writer.h"

#include <cerrno>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <poll.h>
#include <sysexits.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

#include "tools/zelieml/failure.h"

namespace zelieml::program
{

struct line_writer::shared {
    int                     fd;
    complainer              trouble;
    std::mutex              guard;
    std::condition_variable changed;
    std::deque<std::string> lines;  // the first is being written
    std::size_t             dropped = 0;
    bool                    ends    = false;

    void run();
    void tell(int error, std::size_t count) const;
    int  write(std::string const& line) const;
};

line_writer::line_writer(int fd, complainer trouble) : shared_(std::make_shared<shared>())
{
    shared_->fd      = fd;
    shared_->trouble = std::move(trouble);
    try {
        // It has a share: a write that never ends outlives the writer.
        std::thread([all = shared_] { all->run(); }).detach();
    } catch (std::system_error const& error) {
        throw failure(EX_SOFTWARE,
                      std::string("a thread: ") + error.what() + ": allow the user more processes");
    }
}

line_writer::~line_writer()
{
    std::lock_guard<std::mutex> const hold(shared_->guard);
    shared_->ends = true;
    shared_->changed.notify_all();
}

void line_writer::add(std::string const& line) noexcept
{
    std::lock_guard<std::mutex> const hold(shared_->guard);
    try {
        if (shared_->lines.size() < most) {
            shared_->lines.push_back(line + "\n");
            shared_->changed.notify_all();
            return;
        }
    } catch (std::exception const&) {
    }
    ++shared_->dropped;
}

void line_writer::finish(std::chrono::steady_clock::time_point until) const
{
    std::unique_lock<std::mutex> hold(shared_->guard);
    shared_->changed.wait_until(hold, until, [&] { return shared_->lines.empty(); });
}

void line_writer::shared::run()
{
    bool                         fails = false;
    std::unique_lock<std::mutex> hold(guard);
    while (true) {
        changed.wait(hold, [&] { return ends || !lines.empty(); });
        if (lines.empty()) {
            return;
        }
        std::string const& line  = lines.front();  // nobody else takes it away
        std::size_t const  count = std::exchange(dropped, 0);
        hold.unlock();
        int const error = write(line);
        tell(fails ? 0 : error, count);
        fails = error != 0;
        hold.lock();
        lines.pop_front();
        changed.notify_all();
    }
}

void line_writer::shared::tell(int error, std::size_t count) const
{
    try {
        if (error != 0 && trouble) {
            trouble(error, 0);
        }
        if (count > 0 && trouble) {
            trouble(0, count);
        } else if (count > 0) {
            write(std::to_string(count) + " lines are missing here: they were not read in time\n");
        }
    } catch (std::exception const&) {  // no memory to complain
    }
}

// Returns 0, or why it was not written, as errno.
int line_writer::shared::write(std::string const& line) const
{
    for (std::size_t done = 0; done < line.size();) {
        ssize_t const got = ::write(fd, line.data() + done, line.size() - done);
        if (got > 0) {
            done += static_cast<std::size_t>(got);
        } else if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            pollfd entry = {fd, POLLOUT, 0};
            ::poll(&entry, 1, -1);
        } else if (got < 0 && errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

}  // namespace zelieml::program
