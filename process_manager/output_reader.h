#pragma once

// Reads a child's standard output on a thread of its own and hands on each chunk
// as one read returns it.

#include <QString>
#include <functional>
#include <thread>

#include "unique_fd.h"

class OutputReader {
public:
    using StandardOutput = std::function<void(const QString& chunk)>;

    // Starts reading readFd, which must be non-blocking and outlive the reader,
    // as must standardOutput. Throws std::system_error when the thread or its
    // stop signal cannot be set up.
    OutputReader(int readFd, const StandardOutput& standardOutput);
    ~OutputReader();
    OutputReader(const OutputReader&) = delete;
    OutputReader& operator=(const OutputReader&) = delete;

    // Call once the child has been reaped: hands on what the pipe still holds,
    // then ends the thread and joins it, even when a grandchild keeps the pipe's
    // write end open.
    void finish();

private:
    void run();
    void drainReadable(char* buffer, std::size_t size);
    void handOn(const char* data, std::size_t size);

    const int readFd_;
    const StandardOutput& standardOutput_;
    UniqueFd stopSignal_;
    std::thread thread_;
};
