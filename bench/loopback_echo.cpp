// A bare loopback endpoint that answers every POST with its own body: the floor
// that sealed round trips are compared with. Prints its port, then serves.

#include <httplib.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstdio>

int main() {
    httplib::Server server;
    // Keep the one connection for the whole run, as the helper's server does.
    server.set_keep_alive_max_count(1'000'000);
    // Accepted connections inherit TCP_NODELAY from the listening socket; without
    // it each answer waits for the client's delayed acknowledgement.
    server.set_socket_options([](int socket) {
        int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    });
    server.Post("/echo", [](const httplib::Request& request, httplib::Response& response) {
        response.set_content(request.body, "application/json");
    });
    const int port = server.bind_to_any_port("127.0.0.1");
    std::printf("%d\n", port);
    std::fflush(stdout);
    return server.listen_after_bind() ? 0 : 1;
}
