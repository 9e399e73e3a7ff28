/* math.h - numbers with a point */

#ifndef ZELIEML_SDK_MATH_H
#define ZELIEML_SDK_MATH_H

#include <sys/cdefs.h>

#define HUGE_VAL  (__builtin_huge_val())
#define HUGE_VALF (__builtin_huge_valf())
#define HUGE_VALL (__builtin_huge_vall())
#define INFINITY  (__builtin_inff())
#define NAN       (__builtin_nanf(""))

#define FP_NAN           1
#define FP_INFINITE      2
#define FP_ZERO          3
#define FP_NORMAL        4
#define FP_SUBNORMAL     5
#define FP_ILOGB0        (-2147483647 - 1)
#define FP_ILOGBNAN      (-2147483647 - 1)
#define MATH_ERRNO       1
#define MATH_ERREXCEPT   2
#define math_errhandling 2

#define fpclassify(x)        __builtin_fpclassify(FP_NAN, FP_INFINITE, FP_NORMAL, FP_SUBNORMAL, FP_ZERO, x)
#define isfinite(x)          __builtin_isfinite(x)
#define isinf(x)             __builtin_isinf(x)
#define isnan(x)             __builtin_isnan(x)
#define isnormal(x)          __builtin_isnormal(x)
#define signbit(x)           __builtin_signbit(x)
#define isgreater(x, y)      __builtin_isgreater(x, y)
#define isgreaterequal(x, y) __builtin_isgreaterequal(x, y)
#define isless(x, y)         __builtin_isless(x, y)
#define islessequal(x, y)    __builtin_islessequal(x, y)
#define islessgreater(x, y)  __builtin_islessgreater(x, y)
#define isunordered(x, y)    __builtin_isunordered(x, y)

typedef float  float_t;
typedef double double_t;

#define SDK_MATH1(name)                                                                            \
    float       name##f(float);                                                                    \
    double      name(double);                                                                      \
    long double name##l(long double);
#define SDK_MATH2(name)                                                                            \
    float       name##f(float, float);                                                             \
    double      name(double, double);                                                              \
    long double name##l(long double, long double);

SINCE(10.4)
SDK_MATH1(acos)
SDK_MATH1(acosh)
SDK_MATH1(asin)
SDK_MATH1(asinh)
SDK_MATH1(atan)
SDK_MATH1(atanh)
SDK_MATH1(cbrt)
SDK_MATH1(ceil)
SDK_MATH1(cos)
SDK_MATH1(cosh)
SDK_MATH1(erf)
SDK_MATH1(erfc)
SDK_MATH1(exp)
SDK_MATH1(exp2)
SDK_MATH1(expm1)
SDK_MATH1(fabs)
SDK_MATH1(floor)
SDK_MATH1(lgamma)
SDK_MATH1(log)
SDK_MATH1(log10)
SDK_MATH1(log1p)
SDK_MATH1(log2)
SDK_MATH1(logb)
SDK_MATH1(nearbyint)
SDK_MATH1(rint)
SDK_MATH1(round)
SDK_MATH1(sin)
SDK_MATH1(sinh)
SDK_MATH1(sqrt)
SDK_MATH1(tan)
SDK_MATH1(tanh)
SDK_MATH1(tgamma)
SDK_MATH1(trunc)
SDK_MATH2(atan2)
SDK_MATH2(copysign)
SDK_MATH2(fdim)
SDK_MATH2(fmax)
SDK_MATH2(fmin)
SDK_MATH2(fmod)
SDK_MATH2(hypot)
SDK_MATH2(nextafter)
SDK_MATH2(pow)
SDK_MATH2(remainder)
float       fmaf(float, float, float);
float       frexpf(float, int*);
int         ilogbf(float);
float       ldexpf(float, int);
long long   llrintf(float);
long long   llroundf(float);
long        lrintf(float);
long        lroundf(float);
float       modff(float, float*);
float       nanf(char const*);
float       nexttowardf(float, long double);
float       remquof(float, float, int*);
float       scalblnf(float, long);
float       scalbnf(float, int);
double      fma(double, double, double);
double      frexp(double, int*);
int         ilogb(double);
double      ldexp(double, int);
long long   llrint(double);
long long   llround(double);
long        lrint(double);
long        lround(double);
double      modf(double, double*);
double      nan(char const*);
double      nexttoward(double, long double);
double      remquo(double, double, int*);
double      scalbln(double, long);
double      scalbn(double, int);
long double fmal(long double, long double, long double);
long double frexpl(long double, int*);
int         ilogbl(long double);
long double ldexpl(long double, int);
long long   llrintl(long double);
long long   llroundl(long double);
long        lrintl(long double);
long        lroundl(long double);
long double modfl(long double, long double*);
long double nanl(char const*);
long double nexttowardl(long double, long double);
long double remquol(long double, long double, int*);
long double scalblnl(long double, long);
long double scalbnl(long double, int);
END_SINCE

#endif
