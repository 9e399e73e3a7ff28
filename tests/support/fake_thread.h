// fake_thread.h - the library's threads, refused, starved and counted
//
// fake_thread.cpp replaces the start of the library's own threads; needs fake_new.cpp beside it.

#ifndef ZELIEML_TESTS_SUPPORT_FAKE_THREAD_H
#define ZELIEML_TESTS_SUPPORT_FAKE_THREAD_H

namespace zelieml::test
{

// While true, the system has no thread to give.
void refuse_threads(bool on);

// The next thread to be started lives with failing_new(good, bad).
void starve_next_thread(int good, int bad);

// Threads whose bodies have not ended.
int live_threads();

// Waits until there are none. Fails the running test when some are left after 30 s.
void wait_for_threads_to_end();

}  // namespace zelieml::test

#endif
