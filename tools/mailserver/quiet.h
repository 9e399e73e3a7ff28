// quiet.h - connections that raise no SIGPIPE
//
// linux/quiet.cpp, macos/quiet.cpp

#ifndef ZELIEML_TOOLS_MAILSERVER_QUIET_H
#define ZELIEML_TOOLS_MAILSERVER_QUIET_H

namespace zelieml::mailserver
{

// keep_quiet - no write to a connection of this listener raises SIGPIPE in the process, as long as
// the thread that writes has it blocked
void keep_quiet(int listener);

}  // namespace zelieml::mailserver

#endif
