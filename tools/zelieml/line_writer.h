// line_writer.h - lines for somebody who may not read them
//
// A thread of its own writes them. Whoever adds one never waits: what finds no room is dropped, and
// counted.

#ifndef ZELIEML_TOOLS_ZELIEML_LINE_WRITER_H
#define ZELIEML_TOOLS_ZELIEML_LINE_WRITER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace zelieml::program
{

class line_writer
{
public:
    // That wait to be written.
    static constexpr std::size_t most = 1000;

    using complainer = std::function<void(int error, std::size_t dropped)>;

    // fd       stays the caller's
    // trouble  called on the writer's thread, which may outlive the writer, with what there is to
    //          complain of: that writing failed, once until it works again, as errno; or, with 0, how
    //          many lines were dropped. Without one a line says so in the place of those.
    //
    // Throws a failure (EX_SOFTWARE) when there is no thread.
    line_writer(int fd, complainer trouble);

    // Ends without waiting for the thread, which may be writing.
    ~line_writer();
    line_writer(line_writer const&)            = delete;
    line_writer& operator=(line_writer const&) = delete;

    // add - a line without its end; dropped when there are too many, or no memory. Any thread.
    void add(std::string const& line) noexcept;

    // finish - waits until all is written, for so long at most
    void finish(std::chrono::steady_clock::time_point until) const;

private:
    struct shared;

    std::shared_ptr<shared> const shared_;
};

}  // namespace zelieml::program

#endif
