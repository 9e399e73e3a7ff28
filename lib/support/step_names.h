// step_names.h - the names of the steps of an attempt
//
// As eml_probe and eml_cb_get_step give them.

#ifndef ZELIEML_SUPPORT_STEP_NAMES_H
#define ZELIEML_SUPPORT_STEP_NAMES_H

namespace zelieml::step_name
{

inline constexpr char message[]  = "message";   // saved, loaded, composed
inline constexpr char settings[] = "settings";  // read, or those of a server record

// The conversation with a POP3 server.
inline constexpr char pop_look_up[]  = "pop look-up";
inline constexpr char pop_connect[]  = "pop connect";
inline constexpr char pop_tls[]      = "pop tls";  // where it is asked for
inline constexpr char pop_greeting[] = "pop greeting";
inline constexpr char pop_login[]    = "pop login";
inline constexpr char pop_quit[]     = "pop quit";

// What only receiving does.
inline constexpr char stat[] = "stat";
inline constexpr char retr[] = "retr";
inline constexpr char dele[] = "dele";

// The conversation with an SMTP server.
inline constexpr char look_up[]   = "look-up";
inline constexpr char connect[]   = "connect";
inline constexpr char tls[]       = "tls";  // where it is asked for
inline constexpr char greeting[]  = "greeting";
inline constexpr char helo[]      = "helo";
inline constexpr char ehlo[]      = "ehlo";
inline constexpr char login[]     = "login";
inline constexpr char sender[]    = "sender";
inline constexpr char recipient[] = "recipient";
inline constexpr char data[]      = "data";
inline constexpr char text[]      = "text";
inline constexpr char quit[]      = "quit";

// What only a probe does.
inline constexpr char pop_wait[] = "pop wait";
inline constexpr char reset[]    = "reset";
inline constexpr char offer[]    = "offer";

}  // namespace zelieml::step_name

#endif
