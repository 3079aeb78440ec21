// A stand-in for a copy of the application: takes the single-instance lock (or
// exits as a second copy does), then holds it until its standard input closes.

#include <unistd.h>

#include <cstdio>

#include "process_manager/host_facts.h"

int main() {
    ExitAppIfAlreadyOpen();
    std::printf("holding the instance lock\n");
    std::fflush(stdout);
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return 0;
}
