// large_pages.cpp - none that a program can ask for

#include "platform/large_pages.h"

namespace zelieml::platform
{

void use_large_pages(void* /*start*/, std::size_t /*size*/) {}

}  // namespace zelieml::platform
