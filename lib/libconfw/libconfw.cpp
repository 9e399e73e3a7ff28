// libconfw.cpp - a lock around each use of the settings file

#include "libconfw/libconfw.h"

#include <cstring>

#include "liblockw/liblockw.h"
#include "liblog/trace.h"

namespace zelieml
{

namespace
{

// A lock for one call, held for the length of its scope.
class call_lock
{
public:
    explicit call_lock(char const* path)
    {
        if (ifactory_lockw().create(&lock_) == 0) {
            // The name is not used: deliberate, see docs/ODDITIES.md.
            lock_->lock(get_basename(path));
        } else {
            trace_msg("error:ilockw_create");
        }
    }
    ~call_lock()
    {
        if (lock_ != nullptr) {
            lock_->unlock();
            ifactory_lockw().destroy(lock_);
        }
    }
    call_lock(call_lock const&)            = delete;
    call_lock& operator=(call_lock const&) = delete;

    explicit operator bool() const { return lock_ != nullptr; }

private:
    ilock* lock_ = nullptr;
};

}  // namespace

int confw_get_string(char const* key, char* val, unsigned int* len, char const* path)
{
    call_lock const held(path);
    return held ? conf_get_string(key, val, len, path) : -1;
}

int confw_set_string(char const* key, char const* val, char const* path)
{
    call_lock const held(path);
    return held ? conf_set_string(key, val, path) : -1;
}

conf_settings confw_read(char const* path, std::initializer_list<char const*> keys)
{
    call_lock const held(path);
    return conf_settings(held ? path : nullptr, keys);
}

int confw_get_string(char const* key, char* val, unsigned int* len, conf_settings const& settings)
{
    return conf_get_string(key, val, len, settings);
}

char const* get_basename(char const* path)
{
    char const* const backslash = path != nullptr ? std::strrchr(path, '\\') : nullptr;
    return backslash != nullptr ? backslash + 1 : path;
}

}  // namespace zelieml
