#pragma once

// A property that must hold for every input: when it does not, the fuzzer must see a
// crash, with the property named.

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                                     \
    do {                                                                                          \
        if (!(condition)) {                                                                       \
            std::fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                         \
        }                                                                                         \
    } while (false)
