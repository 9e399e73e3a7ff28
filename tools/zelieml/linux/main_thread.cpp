#include "tools/zelieml/main_thread.h"

namespace zelieml::program
{

int hearing_notifications(std::function<int()> const& work)
{
    return work();
}

}  // namespace zelieml::program
