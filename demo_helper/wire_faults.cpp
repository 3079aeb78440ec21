#include "wire_faults.h"

#include <string>

namespace {

constexpr std::size_t kOversizeChunkBytes = 1024 * 1024;
constexpr auto kTrickleStep = std::chrono::milliseconds(10);

}  // namespace

WireFaults::WireFaults(const FaultSwitches& faults)
    : holdUntil_(faults.heldRequests),
      oversizeUntil_(holdUntil_ + faults.oversizedAnswers),
      trickleUntil_(oversizeUntil_ + faults.trickledAnswers) {}

WireFaults::Treatment WireFaults::next() {
    const std::int64_t number = ++requests_;
    return number <= holdUntil_       ? Treatment::hold
           : number <= oversizeUntil_ ? Treatment::oversize
           : number <= trickleUntil_  ? Treatment::trickle
                                      : Treatment::normal;
}

void WireFaults::hold() {
    std::unique_lock lock(lock_);
    releasedChanged_.wait(lock, [this] { return released_; });
}

bool WireFaults::waitReleased(std::chrono::milliseconds time) {
    std::unique_lock lock(lock_);
    return releasedChanged_.wait_for(lock, time, [this] { return released_; });
}

void WireFaults::release() {
    {
        std::lock_guard lock(lock_);
        released_ = true;
    }
    releasedChanged_.notify_all();
}

void WireFaults::oversize(httplib::Response& response) {
    response.set_chunked_content_provider("application/json",
                                          [this, chunk = std::string(kOversizeChunkBytes, ' ')](
                                              std::size_t, httplib::DataSink& sink) {
                                              // Until the client hangs up, or the helper ends.
                                              return !waitReleased(std::chrono::milliseconds(0)) &&
                                                     sink.write(chunk.data(), chunk.size());
                                          });
}

void WireFaults::trickle(httplib::Response& response, QByteArray body) {
    const auto size = static_cast<std::size_t>(body.size());
    response.set_content_provider(
        size, "application/json",
        [this, body = std::move(body)](std::size_t offset, std::size_t, httplib::DataSink& sink) {
            return !waitReleased(kTrickleStep) && sink.write(body.constData() + offset, 1);
        });
}
