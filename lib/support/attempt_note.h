// attempt_note.h - why an attempt failed, told by whoever knows it first
//
// The caller of an attempt makes a note, which is the current one of its thread until it is gone.
// Wherever a failure is known, code calls note_failure: without a current note that does nothing.
//
//     noting_attempt const attempt;
//     int const            result = send(...);
//     if (result != 0) show(attempt->reason);
//
// Nothing here allocates or throws, so there is a reason for lack of memory too.

#ifndef ZELIEML_SUPPORT_ATTEMPT_NOTE_H
#define ZELIEML_SUPPORT_ATTEMPT_NOTE_H

#include <chrono>
#include <cstddef>

#include "zelieml_ext.h"

namespace zelieml
{

// Bytes of a reason, the NUL included.
constexpr std::size_t reason_capacity = 1024;

struct attempt_note {
    eml_cause   cause;                    // eml_cause_none while no failure is known
    char const* step;                     // of step_names.h; "" while none has failed
    char        reason[reason_capacity];  // a sentence; empty while no failure is known
    int         result;                   // see note_result; 0 while it is not known
    int         number;                   // of the attempt: 1, 2; 0 when there was none
    char const* file;                     // the message file; stays valid as long as the note
    std::chrono::steady_clock::time_point begin;  // of the attempt

    // From now on no failure is known.
    void forget();

    // Since the beginning.
    double seconds() const;
};

// A note that is the current one of this thread for the lifetime of the object. They nest: the outer
// one is then the current one again.
class noting_attempt
{
public:
    // number, file  as in attempt_note
    explicit noting_attempt(int number = 0, char const* file = "");
    ~noting_attempt();
    noting_attempt(noting_attempt const&)            = delete;
    noting_attempt& operator=(noting_attempt const&) = delete;

    // Notes the failure and the result, if there are any, for the outer one, too.
    void pass_on() const;

    attempt_note*       operator->() { return &note_; }
    attempt_note const* operator->() const { return &note_; }

private:
    attempt_note        note_;
    attempt_note* const outer_;
};

// current_note - the current note of this thread, or null
attempt_note* current_note();

// note_failure - why the attempt failed, unless an earlier failure is noted
//
// step    what failed, of step_names.h; stays valid as long as the library
// format  printf format of a sentence without a full stop and its arguments, which may be quoted
//         from anywhere: control characters and what is not UTF-8 become "?". What is too long is
//         cut off, and ends with "...".
//
// Never give it a password. May change errno.
__attribute__((format(printf, 3, 4))) void note_failure(eml_cause cause, char const* step,
                                                        char const* format, ...);

// note_no_memory - the reason for lack of memory
//
// step  as above; empty where it is not known
void note_no_memory(char const* step = "");

// note_result - the result number of the failure, for a caller that is told only of a failure
//
// An earlier number stays.
void note_result(int result);

}  // namespace zelieml

#endif
