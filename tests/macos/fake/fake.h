// fake.h - CoreFoundation, Foundation and Security for Linux, strict
//
// A shared library that implements the headers of tests/macos/sdk, so that the library's macOS
// back end runs, and is tested, without macOS. What the real frameworks would crash on, or would
// leave undefined, aborts here, with a line that says why:
//
// - releasing or using an object that is no more, null where an object is needed, an object of the
//   wrong type, an index out of range
// - autoreleasing without a pool, pools that do not nest
// - a transform run without one of the attributes that it needs, or a second time
// - a notification with anything but property-list values, or not to be delivered immediately
// - removing an observer by a name, object and pointer that are not those of exactly one
// - any call in a forked child of a process that has made one: the real frameworks may be used after
//   exec only
// - TLS without functions for its bytes, a connection, or the stop at the server's certificate;
//   reading or writing before the handshake and after the end, and a function for bytes that does
//   less than it was asked to and does not say so
// - a trust evaluated without a policy, or with leave to ask the network
// - a key-handle session detached while it has contexts or keys, and a context that is initialised
//   for a second text to be encrypted
//
// Objects that are still alive when a process ends are an error of the process: it says which,
// and exits with 86. A forked child is not asked, nor a process that ends while it observes.
//
// What the real frameworks leave open is here as inconvenient as it may be: a string that cannot be
// converted leaves rubbish in the buffer, the bytes of empty data are at null, and a transform runs
// on a thread of its own, which releases it some time after the result was returned. What is
// written inside TLS, and cannot be sent, has been taken, and is sent again with what is written
// twice. A second handshake begins by itself. The policy for servers takes for addresses what
// inet_aton does, also where a certificate has them as names, for a server's purpose also that of
// servers with stronger algorithms, and for no server's a certificate without one of these two,
// without alternative names, or that is valid for more than 825 days.
//
// What may fail in the real frameworks can be made to fail here. The functions below are for tests.

#ifndef ZELIEML_TESTS_MACOS_FAKE_H
#define ZELIEML_TESTS_MACOS_FAKE_H

namespace zelieml::fake
{

constexpr int leak_exit_code = 86;

// live_objects - how many objects somebody owns: Foundation's, CoreFoundation's, keys, transforms,
// and of the key-handle interface sessions, contexts and keys
//
// Waits until the threads of transforms have released what they hold, 5 s at most.
long live_objects();

// fail_creation - make one creation fail, the nth from now on; 0 for none
//
// A creation is whatever the frameworks' reference lets end without its object, or with an error.
void fail_creation(int nth);

// creation_failed - whether the failure asked for has come to pass
bool creation_failed();

// key_derivations - how often SecKeyDeriveFromPassword was called
int key_derivations();

// undelivered - notifications that have reached this process and wait for their delivery
int undelivered();

// set_default_zone - the default time zone is so many seconds ahead of GMT
void set_default_zone(double seconds);

// reset_default_zone - it is the C library's again
void reset_default_zone();

}  // namespace zelieml::fake

#endif
