// The vector instructions for the files that use AVX-512.
#pragma once

#ifndef __clang__
// GCC 12 finds the undefined vectors in its own header uninitialised.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <immintrin.h>
