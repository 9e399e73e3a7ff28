// queue_hook.cpp - an engine that has no queue, since it found no memory when it started
//
//     ZELIEML_TEST_NO_QUEUE=1

#include <cstdlib>

extern "C" int __real_eml_queue_message_file(void* engine, char const* path);
extern "C" int __wrap_eml_queue_message_file(void* engine, char const* path);

int __wrap_eml_queue_message_file(void* engine, char const* path)
{
    return std::getenv("ZELIEML_TEST_NO_QUEUE") != nullptr
               ? -1
               : __real_eml_queue_message_file(engine, path);
}
