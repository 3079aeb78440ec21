#pragma once

// The one thread on which the application talks to its helper: requests go out one after
// another on one kept connection, and their sealing and opening run here as well, never on
// the GUI thread. A job is a function of that connection. The request loop runs here too, as
// a job repeated at its interval, so that a ping at rest wakes no other thread.

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
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
    // Runs the job `interval` from now, and again `interval` after each run ends, between the
    // submitted jobs, until another repeated job or none replaces it. A run under way ends
    // first.
    void repeat(Job job, std::chrono::steady_clock::duration interval);
    void stopRepeating() { repeat(nullptr, {}); }

private:
    void run();

    int wake_ = -1;  // an eventfd: readable once the worker is shutting down
    std::mutex lock_;
    std::condition_variable jobsReady_;
    std::deque<Job> jobs_;
    std::shared_ptr<const Job> repeated_;
    std::chrono::steady_clock::duration repeatInterval_{};
    std::chrono::steady_clock::time_point nextRepeat_{};
    bool stopping_ = false;
    std::thread thread_;
};
