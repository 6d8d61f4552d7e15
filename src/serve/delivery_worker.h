// The long-running server's mail sender: a thread that empties the outbox
// whenever a submission is queued, and every few seconds for the retries
// that have come due.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "delivery/config.h"
#include "delivery/store/outbox.h"
#include "delivery/store/store.h"
#include "delivery/store/transport.h"

namespace formwiz::serve {

// The transport a configuration names: SMTP when it has an SMTP URL, else
// its sendmail command; nothing when it has neither.
std::unique_ptr<store::Transport> TransportFor(const delivery::Config& config);

class DeliveryWorker {
 public:
  // How long the worker sleeps when nobody wakes it: the latest a retry
  // that came due waits.
  static constexpr int kPollSeconds = 5;

  DeliveryWorker(store::Store& store, store::Transport& transport,
                 store::OutboxSettings settings);
  ~DeliveryWorker();
  DeliveryWorker(const DeliveryWorker&) = delete;
  DeliveryWorker& operator=(const DeliveryWorker&) = delete;

  void Start();
  // A mail was queued: send it now. Cheap, from any thread.
  void Wake();
  // Stops after the mail being sent, if any; safe to call twice.
  void Stop();

 private:
  void Run();

  store::Store& store_;
  store::Transport& transport_;
  store::OutboxSettings settings_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool woken_ = false;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace formwiz::serve
