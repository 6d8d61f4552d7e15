// How many posts one client address may make: a token bucket per address,
// in memory, for the long-running server; the CGI program, which keeps no
// memory between requests, counts the store's recent rows instead.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "delivery/store/store.h"

namespace formwiz::delivery {

class RateLimiter {
 public:
  virtual ~RateLimiter() = default;
  // True when `client` may post now (and counts the post).
  virtual bool Allow(const std::string& client, int64_t now_ms) = 0;
};

class TokenBucketLimiter : public RateLimiter {
 public:
  // `per_minute` tokens refill in a minute, at most `burst` held.
  TokenBucketLimiter(int per_minute, int burst, size_t max_clients = 100000);
  bool Allow(const std::string& client, int64_t now_ms) override;

 private:
  struct Bucket {
    double tokens;
    int64_t at_ms;
  };
  double per_ms_;
  double burst_;
  size_t max_clients_;
  std::mutex mutex_;
  std::map<std::string, Bucket> buckets_;
};

class StoreRateLimiter : public RateLimiter {
 public:
  StoreRateLimiter(store::Store& store, int per_minute);
  bool Allow(const std::string& client, int64_t now_ms) override;

 private:
  store::Store& store_;
  int per_minute_;
};

}  // namespace formwiz::delivery
