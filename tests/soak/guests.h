// guests.h - engines beside the main one, which start, stop and fork all the time

#ifndef ZELIEML_TESTS_SOAK_GUESTS_H
#define ZELIEML_TESTS_SOAK_GUESTS_H

#include "tests/soak/site.h"

namespace zelieml::test
{

// How many kinds of lives there are; after so many rounds a guest has had all.
extern unsigned const kinds_of_lives;

// In the host, until the load is over; main_eml is its engine.
void run_guests(site const& where, int number, void* main_eml);

// An engine in a process of its own, which is killed when dies is set. Its socket file is left
// until the next of them posts.
void live_as_stranger(site const& where, bool dies);

}  // namespace zelieml::test

#endif
