// directory.cpp - opendir, and an array of strings that a pool keeps alive

#include "platform/directory.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "platform/linux/directory_handle.h"
#include "support/c_boundary.h"

namespace zelieml::platform
{

struct text_array {
    std::vector<std::string> texts;
};

namespace
{

struct pool {
    std::vector<std::unique_ptr<text_array>> arrays;
    pool*                                    outer;
};

thread_local pool* innermost = nullptr;

}  // namespace

release_pool::release_pool() : pool_(new pool{{}, innermost})
{
    innermost = static_cast<pool*>(pool_);
}

release_pool::~release_pool()
{
    auto* const own = static_cast<pool*>(pool_);
    innermost       = own->outer;
    delete own;
}

bool directory_names(char const* directory, std::vector<std::string>& names)
{
    directory_handle const open(::opendir(directory));
    if (!open) {
        return false;
    }
    for (;;) {
        errno                     = 0;
        dirent const* const entry = ::readdir(open.get());
        if (entry == nullptr) {
            return errno == 0;
        }
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
            names.emplace_back(entry->d_name);
        }
    }
}

text_array* text_array_create()
{
    return new (std::nothrow) text_array();
}

bool text_array_append(text_array* array, char const* text)
{
    return at_c_boundary(false, [&] {
        array->texts.emplace_back(text);
        return true;
    });
}

int text_array_count(text_array const* array)
{
    return static_cast<int>(array->texts.size());
}

bool text_array_get(text_array const* array, int index, char* buf, std::size_t size)
{
    if (index < 0 || index >= text_array_count(array)) {
        return false;
    }
    std::string const& text = array->texts[static_cast<std::size_t>(index)];
    if (text.size() >= size) {
        return false;
    }
    std::memcpy(buf, text.c_str(), text.size() + 1);
    return true;
}

text_array const* text_array_autorelease(text_array* array)
{
    std::unique_ptr<text_array> owned(array);
    innermost->arrays.push_back(std::move(owned));
    return array;
}

void text_array_release(text_array* array)
{
    delete array;
}

}  // namespace zelieml::platform
