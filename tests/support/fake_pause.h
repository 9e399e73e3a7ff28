// fake_pause.h - an engine's seconds, one by one
//
// fake_pause.cpp replaces the pauses of the workers, and needs fake_clock.cpp beside it: a worker
// comes to its pause and stays there until the test lets time pass, or the engine is stopped.

#ifndef ZELIEML_TESTS_SUPPORT_FAKE_PAUSE_H
#define ZELIEML_TESTS_SUPPORT_FAKE_PAUSE_H

#include <functional>

namespace zelieml::test
{

// Lets the pauses of all workers of the process end so many times, moves the wall clock by the
// length of each, and returns when the workers have come to the pause after the last of them. For
// one worker at a time: with several, each pass is that of whichever comes first.
void pass_pauses(int count);

// The same for a worker that may be long in what follows, or does not come back: returns at once.
void let_pauses_pass(int count);

// Waits until a worker stands at a pause with none left to pass. Fails the running test when none
// comes in 30 s.
void wait_for_pause();

// Called at the end of every pause that passes, on the worker's thread; nothing is called after an
// empty function. Not while a worker may be at the end of its pause.
void after_each_pause(std::function<void()> const& action);

// How many pauses have begun since the process started.
int pauses_begun();

}  // namespace zelieml::test

#endif
