#include "delivery/rate_limit.h"

#include <algorithm>
#include <vector>

namespace formwiz::delivery {

TokenBucketLimiter::TokenBucketLimiter(int per_minute, int burst,
                                       size_t max_clients)
    : per_ms_(std::max(per_minute, 1) / 60000.0),
      burst_(std::max(burst, 1)),
      max_clients_(std::max<size_t>(max_clients, 1)) {}

bool TokenBucketLimiter::Allow(const std::string& client, int64_t now_ms) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = buckets_.find(client);
  if (it == buckets_.end()) {
    if (buckets_.size() >= max_clients_) {
      // A flood of addresses must not grow the map without end. Dropping a
      // bucket forgets the client's spent tokens; the stalest go first, an
      // eighth at a time, so that the cost is paid once per many inserts.
      std::vector<std::pair<int64_t, std::string>> ages;
      ages.reserve(buckets_.size());
      for (const auto& [name, bucket] : buckets_) {
        ages.emplace_back(bucket.at_ms, name);
      }
      const size_t drop = std::max<size_t>(ages.size() / 8, 1);
      std::nth_element(ages.begin(), ages.begin() + (drop - 1), ages.end());
      for (size_t i = 0; i < drop; ++i) buckets_.erase(ages[i].second);
    }
    it = buckets_.emplace(client, Bucket{burst_, now_ms}).first;
  }
  Bucket& bucket = it->second;
  // A clock that steps back refills nothing.
  const int64_t elapsed = std::max<int64_t>(now_ms - bucket.at_ms, 0);
  bucket.tokens = std::min(burst_, bucket.tokens + elapsed * per_ms_);
  bucket.at_ms = std::max(bucket.at_ms, now_ms);
  if (bucket.tokens < 1.0) return false;
  bucket.tokens -= 1.0;
  return true;
}

StoreRateLimiter::StoreRateLimiter(store::Store& store, int per_minute)
    : store_(store), per_minute_(std::max(per_minute, 1)) {}

bool StoreRateLimiter::Allow(const std::string& client, int64_t now_ms) {
  // The store keeps whole seconds: the window is the last 60 of them.
  const int64_t since = now_ms / 1000 - 59;
  return store_.CountFromClientSince(client, since) < per_minute_;
}

}  // namespace formwiz::delivery
