#pragma once
// The events the page follows over Server-Sent Events: run progress, messages, map
// refreshes. The run's worker publishes; every open event stream reads from its own
// position. A short history lets a page that (re)connects catch up.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace vorel::web {

struct WebEvent {
  uint64_t id = 0;
  std::string type;  // "progress", "message", "run", "map"
  std::string data;  // JSON text
};

class EventHub {
 public:
  explicit EventHub(size_t history = 512) : history_(history) {}

  void Publish(std::string type, std::string data);
  // The events after `after`, waiting until there is one, the hub closes or `waitMs` pass.
  std::vector<WebEvent> Wait(uint64_t after, int waitMs);
  uint64_t LastId() const;
  // Ends every stream; later waits return at once.
  void Close();
  bool closed() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<WebEvent> events_;
  size_t history_;
  uint64_t lastId_ = 0;
  bool closed_ = false;
};

// One event in the text/event-stream format.
std::string FormatServerSentEvent(const WebEvent& event);

}  // namespace vorel::web
