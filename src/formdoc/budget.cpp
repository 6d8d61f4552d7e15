#include "formdoc/budget.h"

#include <algorithm>

namespace formwiz {
namespace {

thread_local AssemblyBudget* current = nullptr;

}  // namespace

AssemblyBudget::AssemblyBudget(int64_t nodes, int64_t bytes)
    : nodes_left_(std::max(kMinNodes, kFactor * nodes)),
      bytes_left_(std::max(kMinBytes, kFactor * bytes)),
      previous_(current) {
  current = this;
}

AssemblyBudget::~AssemblyBudget() { current = previous_; }

AssemblyBudget* AssemblyBudget::Current() { return current; }

bool AssemblyBudget::Take(int64_t nodes, int64_t bytes) {
  if (exhausted_ || nodes > nodes_left_ || bytes > bytes_left_) {
    exhausted_ = true;
    return false;
  }
  nodes_left_ -= nodes;
  bytes_left_ -= bytes;
  return true;
}

}  // namespace formwiz
