/*
 * check.h - the conditions of a test in C
 *
 * CHECK prints a condition that does not hold and counts it in failures.
 */

#ifndef ZELIEML_TESTS_SUPPORT_CHECK_H
#define ZELIEML_TESTS_SUPPORT_CHECK_H

#include <stdio.h>

static int failures = 0;

static void check(int good, char const* what, int line)
{
    if (!good) {
        fprintf(stderr, "line %d: %s\n", line, what);
        ++failures;
    }
}

#define CHECK(condition) check((condition) ? 1 : 0, #condition, __LINE__)

#endif
