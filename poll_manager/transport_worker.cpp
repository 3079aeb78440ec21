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

void TransportWorker::repeat(Job job, std::chrono::steady_clock::duration interval) {
    std::shared_ptr<const Job> replaced;
    {
        std::lock_guard lock(lock_);
        replaced = std::move(repeated_);
        if (job) {
            repeated_ = std::make_shared<const Job>(std::move(job));
            repeatInterval_ = interval;
            nextRepeat_ = std::chrono::steady_clock::now() + interval;
        }
    }
    jobsReady_.notify_one();
}

void TransportWorker::run() {
    pthread_setname_np(pthread_self(), "brisvane-net");
    HttpConnection connection(wake_);
    std::unique_lock lock(lock_);
    while (!stopping_) {
        if (!jobs_.empty()) {
            Job job = std::move(jobs_.front());
            jobs_.pop_front();
            lock.unlock();
            job(connection);
            job = nullptr;  // its captures go here, not under the lock
            lock.lock();
        } else if (repeated_ && std::chrono::steady_clock::now() >= nextRepeat_) {
            std::shared_ptr<const Job> job = repeated_;
            lock.unlock();
            (*job)(connection);
            job.reset();
            lock.lock();
            nextRepeat_ = std::chrono::steady_clock::now() + repeatInterval_;
        } else if (repeated_) {
            jobsReady_.wait_until(lock, nextRepeat_);
        } else {
            jobsReady_.wait(lock);
        }
    }
    // Dropped outside the lock: a job's captures may finish a promise whose continuations run.
    std::deque<Job> dropped = std::move(jobs_);
    std::shared_ptr<const Job> repeated = std::move(repeated_);
    lock.unlock();
}
