// held_name.h - the names of the messages that a service has taken from the work directory
//
//     a.sme~17f0a4c2e81b3d5e-12.first
//
// is the message that was posted as a.sme. The number after "~" is the service's, and no other
// message of any service has it. The word says how far the message is.

#ifndef ZELIEML_TOOLS_ZELIEML_HELD_NAME_H
#define ZELIEML_TOOLS_ZELIEML_HELD_NAME_H

#include <atomic>
#include <string>

namespace zelieml::program
{

enum class stage {
    first,  // about to be sent
    tried,  // it failed once, and waits
    second  // about to be sent the second time
};

struct held_name {
    // Of a file of that name; what is none of a service's counts as one that was just posted.
    static held_name of(std::string const& file);

    std::string file() const;

    // Whether the engine takes a path with this name, at every stage. Others' names can be longer.
    bool fits() const;

    // What stays the same at every stage.
    std::string key() const;

    held_name at(stage next) const { return {posted, number, next}; }

    std::string posted;
    std::string number;
    stage       reached = stage::first;
};

// New names, each another one. Any thread.
class held_names
{
public:
    held_names();

    // Of a name that is too long the end is cut off, but for ".sme".
    held_name make(std::string const& posted, stage reached);

private:
    std::string const          start_;
    std::atomic<unsigned long> count_{0};
};

}  // namespace zelieml::program

#endif
