// The floor's server: answers every POST on 127.0.0.1 with its own body, over plain
// sockets from one thread. Prints its port, then serves until it is killed.

#include <cstdio>
#include <string>

#include "bare_http.h"

int main() {
    bare::Server server([](std::string_view body) { return std::string(body); });
    std::printf("%d\n", server.port());
    std::fflush(stdout);
    server.serve();
    return 0;
}
