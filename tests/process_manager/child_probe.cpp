// A child for the process manager's tests.
//
//   child_probe argv ...          writes "[argv0][argv1]..." in one write
//   child_probe chunks HEX ...    writes each hex-coded chunk in one write, and waits
//                                 until the pipe is empty (the reader has taken the
//                                 chunk) before writing the next, so that every chunk
//                                 reaches the reader as one read of its own.

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace {

bool writeAll(const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::write(STDOUT_FILENO, bytes.data() + done, bytes.size() - done);
        if (count == -1 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(count);
    }
    return true;
}

void waitUntilPipeEmpty() {
    int pending = 0;
    while (::ioctl(STDOUT_FILENO, FIONREAD, &pending) == 0 && pending > 0) {
        ::usleep(1000);
    }
}

std::string fromHex(const char* hex) {
    std::string bytes;
    for (std::size_t i = 0; hex[i] != '\0' && hex[i + 1] != '\0'; i += 2) {
        bytes.push_back(static_cast<char>(std::stoi(std::string(hex + i, 2), nullptr, 16)));
    }
    return bytes;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 2 && std::strcmp(argv[1], "argv") == 0) {
        std::string line;
        for (int i = 0; i < argc; ++i) {
            line += '[';
            line += argv[i];
            line += ']';
        }
        return writeAll(line) ? 0 : 1;
    }
    if (argc >= 2 && std::strcmp(argv[1], "chunks") == 0) {
        for (int i = 2; i < argc; ++i) {
            if (!writeAll(fromHex(argv[i]))) {
                return 1;
            }
            waitUntilPipeEmpty();
        }
        return 0;
    }
    return 2;
}
