#include "serve/delivery_worker.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>

namespace formwiz::serve {

std::unique_ptr<store::Transport> TransportFor(const delivery::Config& config) {
  if (!config.smtp.url.empty()) return store::MakeSmtpTransport(config.smtp);
  if (!config.sendmail.empty()) {
    return store::MakeSendmailTransport(config.sendmail,
                                        config.smtp.timeout_seconds);
  }
  return nullptr;
}

DeliveryWorker::DeliveryWorker(store::Store& store, store::Transport& transport,
                               store::OutboxSettings settings)
    : store_(store), transport_(transport), settings_(settings) {}

DeliveryWorker::~DeliveryWorker() { Stop(); }

void DeliveryWorker::Start() {
  if (!thread_.joinable()) thread_ = std::thread([this] { Run(); });
}

void DeliveryWorker::Wake() {
  {
    std::lock_guard lock(mutex_);
    woken_ = true;
  }
  wake_.notify_one();
}

void DeliveryWorker::Stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void DeliveryWorker::Run() {
  const std::string owner = store::WorkerName();
  const auto now = [] { return static_cast<int64_t>(std::time(nullptr)); };
  const auto keep_going = [this] {
    std::lock_guard lock(mutex_);
    return !stopping_;
  };
  while (keep_going()) {
    try {
      store::DeliverDue(store_, transport_, settings_, owner, now, keep_going);
    } catch (const std::exception& e) {
      // A store that fails now may work at the next pass (a locked or full
      // disk); the mails stay queued meanwhile.
      std::fprintf(stderr, "formwiz serve: delivery: %s\n", e.what());
    }
    std::unique_lock lock(mutex_);
    wake_.wait_for(lock, std::chrono::seconds(kPollSeconds),
                   [this] { return woken_ || stopping_; });
    woken_ = false;
  }
}

}  // namespace formwiz::serve
