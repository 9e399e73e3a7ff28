// libqueue.cpp - message files waiting to be sent

#include "libqueue/libqueue.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "liblog/trace.h"
#include "platform/clock.h"
#include "support/c_boundary.h"
#include "support/interface.h"

namespace zelieml
{

namespace
{

using queue_list = snapshot<c_queue>::list;

// The traces of a change. The change may be tried several times, but is traced only once.
using trace_list = std::vector<char const*>;

void tell(trace_list const& texts)
{
    for (char const* const text : texts) {
        trace_msg(text);
    }
}

queue_list::iterator find(queue_list& queue, std::string const& path)
{
    return std::find_if(queue.begin(), queue.end(),
                        [&](c_queue const& entry) { return entry.path() == path; });
}

// Whether an entry is due; if so, it counts as handed out.
bool is_try_queue(c_queue& entry, unsigned int try_count, unsigned int interval, trace_list& said)
{
    said.push_back("is_try_queue in try_count=%d interval=%d");
    bool due = false;
    if (try_count == 0 && entry.try_count() == 0) {
        due = true;
    } else if (try_count == 1 && entry.try_count() >= 1) {
        // Since queueing, not since the last attempt: deliberate, see docs/ODDITIES.md.
        std::int64_t const elapsed =
            std::int64_t{platform::wall_seconds()} - std::int64_t{entry.queued_time()};
        due = elapsed >= std::int64_t{interval / 1000};
    }
    if (!due) {
        said.push_back("is_try_queue out with false");
        return false;
    }
    said.push_back("is_try_queue(true) %s %d");
    entry.hand_out();
    return true;
}

enum class addition {
    appended,
    known,
    evicting  // and the oldest file has left
};

// Appends one file; evicted receives the path of the entry that made room for it.
addition append(snapshot<c_queue>& queue, c_queue const& entry, std::string& evicted)
{
    addition outcome = addition::known;
    queue.update([&](queue_list& list) {
        if (find(list, entry.path()) != list.end()) {
            outcome = addition::known;
            return false;
        }
        outcome = addition::appended;
        if (list.size() >= max_queue) {
            outcome = addition::evicting;
            evicted = list.front().path();
            list.erase(list.begin());
        }
        list.push_back(entry);
        return true;
    });
    return outcome;
}

// get, for what `form` makes of an entry.
template <class Item, class Form>
int get_due(snapshot<c_queue>& queue, std::vector<Item>& items, unsigned int try_count,
            unsigned int interval, Form&& form)
{
    std::vector<Item> due;
    trace_list        said;
    queue.update([&](queue_list& list) {
        due.clear();
        said.clear();
        for (c_queue& entry : list) {
            if (is_try_queue(entry, try_count, interval, said)) {
                due.push_back(form(entry));
                said.push_back("get file %s");
            }
        }
        items.reserve(items.size() + due.size());  // nothing fails once the entries are handed out
        return !due.empty();
    });
    tell(said);
    std::move(due.begin(), due.end(), std::back_inserter(items));
    return 0;
}

}  // namespace

c_queue::c_queue(std::string const& path, std::optional<uid_t> owner)
    : queued_time_(platform::wall_seconds()), path_(std::make_shared<std::string const>(path)),
      owner_(owner)
{
}

bool operator==(c_queue const& a, c_queue const& b)
{
    return a.path() == b.path();
}

int iqmgr::create_context()
{
    return at_c_boundary(-1, [&] {
        context_ = new _s_iqmgr();
        return 0;
    });
}

int iqmgr::destroy_context()
{
    delete context_;
    context_ = nullptr;
    return 0;
}

int iqmgr::add(std::vector<std::string> const& files, std::optional<uid_t> owner)
{
    for (std::string const& file : files) {
        std::string    evicted;
        addition const outcome = append(context_->queue, c_queue(file, owner), evicted);
        if (outcome == addition::known) {
            trace_msg("warning:%s is already found");
            continue;
        }
        if (outcome == addition::evicting) {
            // The entry leaves before its file is deleted, so that two threads never evict the same
            // file.
            trace_msg("warning:max_queue %d");
            trace_msg("remove:%s");
            iqmgr_erase(evicted.c_str());
        }
        trace_msg("posted! %s");
        trace_msg("add file %s");
        if (outcome == addition::evicting) {
            return 0;  // one eviction a call: deliberate, see docs/ODDITIES.md
        }
    }
    return 0;
}

int iqmgr::get(std::vector<std::string>& files, unsigned int try_count, unsigned int interval)
{
    return get_due(context_->queue, files, try_count, interval,
                   [](c_queue const& entry) { return entry.path(); });
}

int iqmgr::get(std::vector<c_queue>& entries, unsigned int try_count, unsigned int interval)
{
    return get_due(context_->queue, entries, try_count, interval,
                   [](c_queue const& entry) { return entry; });
}

int iqmgr::erase(std::vector<std::string> const& files)
{
    for (std::string const& file : files) {
        auto const queued = context_->queue.get();
        if (std::none_of(queued->begin(), queued->end(),
                         [&](c_queue const& entry) { return entry.path() == file; })) {
            trace_msg("warning:%s is not found");
            continue;
        }
        trace_msg("erase:%s");
        // The file first: when its path is announced again in between, the entry is still there.
        iqmgr_erase(file.c_str());
        context_->queue.update([&](queue_list& list) {
            auto const entry = find(list, file);
            if (entry == list.end()) {
                return false;
            }
            list.erase(entry);
            return true;
        });
    }
    return 0;
}

int iqmgr_create(iqmgr** out)
{
    if (create_with_context<iqmgr>(out) != 0) {
        return -1;
    }
    ::pthread_mutex_init(&(*out)->mutex_, nullptr);
    return 0;
}

int iqmgr_destroy(iqmgr* manager)
{
    if (manager == nullptr) {
        trace_msg("error:qmbr == 0");
        return -1;
    }
    ::pthread_mutex_destroy(&manager->mutex_);
    manager->destroy_context();
    return templ_destroy_iinterface<iqmgr>(manager);
}

int iqmgr_erase(char const* path)
{
    if (std::remove(path) != 0) {
        trace_msg("error:remove(%s)");
        return -1;
    }
    trace_msg("removed %s");
    return 0;
}

int iqmgr_erase_files(std::vector<std::string> const& files)
{
    for (std::string const& file : files) {
        trace_msg("erase:%s");
        iqmgr_erase(file.c_str());
    }
    return 0;
}

}  // namespace zelieml
