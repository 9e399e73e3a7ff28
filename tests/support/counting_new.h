// counting_new.h - how many objects the program has on the heap
//
// fake_new.cpp replaces operator new of the whole program.

#ifndef ZELIEML_TESTS_SUPPORT_COUNTING_NEW_H
#define ZELIEML_TESTS_SUPPORT_COUNTING_NEW_H

namespace zelieml::test
{

// Those made and not deleted yet, by all threads.
int live_objects();

}  // namespace zelieml::test

#endif
