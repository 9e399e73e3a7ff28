// key_handle.cpp - freeing keys and contexts of any kind

#include "platform/key_handle.h"

#include "platform/key_objects.h"

namespace zelieml::platform
{

int free_key(csp_key* key)
{
    if (key != nullptr) {
        destroy_object(key);
    }
    return 0;
}

int free_context(csp_context* context)
{
    if (context != nullptr) {
        destroy_object(context);
    }
    return 0;
}

}  // namespace zelieml::platform
