#pragma once

// The one thread on which the application talks to its helper: requests go out one after
// another on one kept connection, and their sealing and opening run here as well, never on
// the GUI thread. A job is a function of that connection.

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

class HttpConnection;

class TransportWorker {
public:
    using Job = std::function<void(HttpConnection&)>;

    TransportWorker();
    // Ends the exchange under way at once and drops the jobs not yet started.
    ~TransportWorker();
    TransportWorker(const TransportWorker&) = delete;
    TransportWorker& operator=(const TransportWorker&) = delete;

    void submit(Job job);

private:
    void run();

    int wake_ = -1;  // an eventfd: readable once the worker is shutting down
    std::mutex lock_;
    std::condition_variable jobsReady_;
    std::deque<Job> jobs_;
    bool stopping_ = false;
    std::thread thread_;
};
