/* engine_clock.h - a clock for the library that runs faster than the world's */

#ifndef ZELIEML_TESTS_SOAK_ENGINE_CLOCK_H
#define ZELIEML_TESTS_SOAK_ENGINE_CLOCK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    engine_clock_speed = 600 /* half an hour of an engine takes 3 s */
};

/* Call it first, in the process that forks all others. */
void start_engine_clock(void);

/* What the library takes for the time, in ms since 1970. */
int64_t engine_clock_ms(void);

/* From now on this process finds no host by its name. */
void look_no_names_up(void);

#ifdef __cplusplus
}
#endif

#endif
