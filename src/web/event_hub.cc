#include "web/event_hub.h"

#include <fmt/format.h>

#include <chrono>

namespace vorel::web {

void EventHub::Publish(std::string type, std::string data) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(WebEvent{++lastId_, std::move(type), std::move(data)});
    while (events_.size() > history_) events_.pop_front();
  }
  changed_.notify_all();
}

std::vector<WebEvent> EventHub::Wait(uint64_t after, int waitMs) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, std::chrono::milliseconds(waitMs),
                    [&] { return closed_ || lastId_ > after; });
  std::vector<WebEvent> out;
  for (const WebEvent& e : events_)
    if (e.id > after) out.push_back(e);
  return out;
}

uint64_t EventHub::LastId() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lastId_;
}

void EventHub::Close() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
  }
  changed_.notify_all();
}

bool EventHub::closed() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return closed_;
}

std::string FormatServerSentEvent(const WebEvent& e) {
  // The data is one line of JSON, so one data field carries it.
  return fmt::format("id: {}\nevent: {}\ndata: {}\n\n", e.id, e.type, e.data);
}

}  // namespace vorel::web
