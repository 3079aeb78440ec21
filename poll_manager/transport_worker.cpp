#include "transport_worker.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "diagnostics/diagnostics.h"
#include "http_connection.h"

TransportWorker::TransportWorker() : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wake_ < 0) {
        Diagnostics::stop("cannot create the transport's wake descriptor");
    }
    thread_ = std::thread([this] { run(); });
}

TransportWorker::~TransportWorker() {
    {
        std::lock_guard lock(lock_);
        stopping_ = true;
    }
    const std::uint64_t one = 1;
    (void)!write(wake_, &one, sizeof one);
    jobsReady_.notify_one();
    thread_.join();
    ::close(wake_);
}

void TransportWorker::submit(Job job) {
    {
        std::lock_guard lock(lock_);
        jobs_.push_back(std::move(job));
    }
    jobsReady_.notify_one();
}

void TransportWorker::run() {
    pthread_setname_np(pthread_self(), "brisvane-net");
    HttpConnection connection(wake_);
    std::unique_lock lock(lock_);
    while (true) {
        jobsReady_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
        if (stopping_) {
            break;
        }
        Job job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        job(connection);
        job = nullptr;  // its captures go here, not under the lock
        lock.lock();
    }
    // Dropped outside the lock: a job's captures may finish a promise whose continuations run.
    std::deque<Job> dropped = std::move(jobs_);
    lock.unlock();
}
