#include "key_exchange/fatal.h"

#include <cstdio>
#include <cstdlib>

void KeyExchangeFatal(const char* message) {
    std::fprintf(stderr, "key exchange fatal error: %s\n", message);
    std::fflush(stderr);
    std::abort();
}
