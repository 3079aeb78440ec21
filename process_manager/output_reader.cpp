#include "output_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <QByteArrayView>
#include <QStringDecoder>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace {

constexpr std::size_t kChunkCapacity = 64 * 1024;

}  // namespace

OutputReader::OutputReader(int readFd, const StandardOutput& standardOutput)
    : readFd_(readFd), standardOutput_(standardOutput), stopSignal_(eventfd(0, EFD_CLOEXEC)) {
    if (!stopSignal_.valid()) {
        throw std::system_error(errno, std::system_category());
    }
    thread_ = std::thread(&OutputReader::run, this);
}

OutputReader::~OutputReader() {
    if (thread_.joinable()) {
        finish();
    }
}

void OutputReader::finish() {
    const std::uint64_t one = 1;
    // An eventfd write of 1 cannot fail short of counter overflow.
    (void)!::write(stopSignal_.get(), &one, sizeof one);
    thread_.join();
}

void OutputReader::run() {
    std::array<char, kChunkCapacity> buffer;
    std::array<pollfd, 2> watched = {{
        {.fd = readFd_, .events = POLLIN, .revents = 0},
        {.fd = stopSignal_.get(), .events = POLLIN, .revents = 0},
    }};
    for (;;) {
        if (::poll(watched.data(), watched.size(), -1) == -1) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (watched[1].revents != 0) {
            drainReadable(buffer.data(), buffer.size());
            return;
        }
        if (watched[0].revents == 0) {
            continue;
        }
        const ssize_t count = ::read(readFd_, buffer.data(), buffer.size());
        if (count > 0) {
            handOn(buffer.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            return;  // every writer is gone, or the pipe broke
        }
    }
}

void OutputReader::drainReadable(char* buffer, std::size_t size) {
    // The reaped child can have left at most one pipe's worth behind; a grandchild
    // that keeps writing must not hold the run open, so read no more than that.
    const int pipeCapacity = ::fcntl(readFd_, F_GETPIPE_SZ);
    std::size_t budget = pipeCapacity > 0 ? static_cast<std::size_t>(pipeCapacity) : size;
    while (budget > 0) {
        const ssize_t count = ::read(readFd_, buffer, size);
        if (count > 0) {
            handOn(buffer, static_cast<std::size_t>(count));
            budget -= std::min(budget, static_cast<std::size_t>(count));
        } else if (count == -1 && errno == EINTR) {
            continue;
        } else {
            return;
        }
    }
}

void OutputReader::handOn(const char* data, std::size_t size) {
    // Each chunk is decoded on its own: one that is not valid UTF-8, including one
    // that ends inside a character, is dropped whole.
    QStringDecoder decoder(
        QStringConverter::Encoding::Utf8,
        QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
    const QString text = decoder.decode(QByteArrayView(data, static_cast<qsizetype>(size)));
    if (!decoder.hasError()) {
        standardOutput_(text);
    }
}
