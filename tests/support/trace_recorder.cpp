#include "tests/support/trace_recorder.h"

#include <mutex>

#include "liblog/trace.h"

namespace
{

std::mutex               guard;
std::vector<std::string> texts;

}  // namespace

namespace zelieml
{

void trace_msg(char const* text)
{
    std::lock_guard<std::mutex> hold(guard);
    texts.emplace_back(text != nullptr ? text : "(null)");
}

namespace test
{

void clear_traces()
{
    std::lock_guard<std::mutex> hold(guard);
    texts.clear();
}

std::vector<std::string> traces()
{
    std::lock_guard<std::mutex> hold(guard);
    return texts;
}

std::vector<std::string> trouble_traces()
{
    std::vector<std::string> trouble;
    for (std::string const& text : traces()) {
        for (char const* start : {"error", "errro", "warning"}) {
            if (text.rfind(start, 0) == 0) {
                trouble.push_back(text);
                break;
            }
        }
    }
    return trouble;
}

}  // namespace test
}  // namespace zelieml
