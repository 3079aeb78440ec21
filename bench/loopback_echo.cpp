// A bare loopback endpoint that answers every POST with its own body: the floor
// that sealed round trips are compared with. Prints its port, then serves.

#include <httplib.h>

#include <cstdio>

int main() {
    httplib::Server server;
    // Keep the one connection for the whole run, as the helper's server does.
    server.set_keep_alive_max_count(1'000'000);
    server.Post("/echo", [](const httplib::Request& request, httplib::Response& response) {
        response.set_content(request.body, "application/json");
    });
    const int port = server.bind_to_any_port("127.0.0.1");
    std::printf("%d\n", port);
    std::fflush(stdout);
    return server.listen_after_bind() ? 0 : 1;
}
