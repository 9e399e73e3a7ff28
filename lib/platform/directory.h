// directory.h - the names in a directory, and the platform's array of strings
//
// lib/platform/macos/directory.mm: Foundation's file manager and a CFArray of CFStrings.
// lib/platform/linux/directory.cpp: opendir and a vector.
//
// One rule for both systems: an array passed to text_array_autorelease lives until the innermost
// release_pool of the thread ends.
//
// On macOS a forked child of a process that has used the frameworks (see macos/first_process.h) can
// neither list a directory nor make an array, and must not use its parent's arrays.

#ifndef ZELIEML_PLATFORM_DIRECTORY_H
#define ZELIEML_PLATFORM_DIRECTORY_H

#include <cstddef>
#include <string>
#include <vector>

namespace zelieml::platform
{

// The platform's array of strings.
struct text_array;

// Frees, at the end of its scope, what was autoreleased on this thread since it was made. Pools of
// one thread nest.
class release_pool
{
public:
    release_pool();
    ~release_pool();
    release_pool(release_pool const&)            = delete;
    release_pool& operator=(release_pool const&) = delete;

private:
    void* pool_;
};

// directory_names - the names of a directory's entries, in no particular order, without "." and
// ".."
//
// names  receives the names, appended; on failure maybe some of them
//
// Returns false when the directory cannot be listed. Throws std::bad_alloc.
bool directory_names(char const* directory, std::vector<std::string>& names);

// text_array_create - an empty array, which the caller owns; null when there is no memory
text_array* text_array_create();

// text_array_append - append a copy of a string
//
// Returns false when there is no memory, or the string is not valid in the system's encoding.
bool text_array_append(text_array* array, char const* text);

// text_array_count - the number of strings
int text_array_count(text_array const* array);

// text_array_get - copy a string
//
// buf   receives the string and its NUL; undefined on failure
// size  bytes at buf, the NUL included
//
// Returns false when there is no such string, or when it does not fit with its NUL.
bool text_array_get(text_array const* array, int index, char* buf, std::size_t size);

// text_array_autorelease - hand an array over to the thread's innermost release_pool
//
// Returns the array. When it throws std::bad_alloc, the array is freed. There must be a pool.
text_array const* text_array_autorelease(text_array* array);

// text_array_release - free an array of text_array_create that was not autoreleased
void text_array_release(text_array* array);

}  // namespace zelieml::platform

#endif
