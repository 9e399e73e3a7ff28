// liblockw.cpp - a lock made of one mutex

#include "liblockw/liblockw.h"

#include "liblog/trace.h"
#include "support/heap.h"
#include "support/interface.h"

namespace zelieml
{

int ilockw::lock(char const* /*name*/)
{
    if (mutex_ == nullptr || ::pthread_mutex_lock(mutex_) != 0) {
        trace_msg("error:_lock");
        return -1;
    }
    return 0;
}

int ilockw::unlock()
{
    return mutex_ != nullptr ? ::pthread_mutex_unlock(mutex_) : -1;
}

int ilockw::create_context()
{
    mutex_ = static_cast<pthread_mutex_t*>(heap_alloc(sizeof(pthread_mutex_t)));
    if (mutex_ == nullptr) {
        return -1;
    }
    if (::pthread_mutex_init(mutex_, nullptr) != 0) {
        trace_msg("error:pthread_mutex_init");
        return -1;  // with its memory: deliberate, see docs/ODDITIES.md
    }
    return 0;
}

int ilockw::destroy_context()
{
    if (mutex_ == nullptr) {
        return -1;
    }
    ::pthread_mutex_destroy(mutex_);
    heap_free(mutex_);  // and the pointer stays: deliberate, see docs/ODDITIES.md
    return 0;
}

pthread_mutex_t* ilockw::get_context()
{
    return mutex_;
}

int ifactory_lockw::create(ilock** out)
{
    if (out == nullptr || templ_create_interface<ilockw, ilock>(out) != 0) {
        return -1;
    }
    if ((*out)->create_context() != 0) {
        heap_free((*out)->get_context());  // memory of a mutex that was never initialised
        templ_destroy_interface<ilockw, ilock>(*out);
        *out = nullptr;
        return -1;
    }
    return 0;
}

int ifactory_lockw::destroy(ilock* lock)
{
    if (lock == nullptr) {
        trace_msg("error:lock == 0");
        return -1;
    }
    lock->destroy_context();
    return templ_destroy_interface<ilockw, ilock>(lock);
}

}  // namespace zelieml
