// trust_store.cpp - none: the authorities are in keychains

#include "platform/trust_store.h"

namespace zelieml::platform
{

char const* trust_store_file()
{
    return nullptr;
}

}  // namespace zelieml::platform
