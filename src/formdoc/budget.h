// What one assembly may make. Templates are copied once per field, and the
// values that fill placeholders can hold further placeholders, so a small
// hostile definition could otherwise ask for more than any memory holds: a
// 500 KB template used by 500,000 fields, or five values each naming the
// next placeholder a hundred times (100^5 copies of the last one).
#pragma once

#include <cstdint>

namespace formwiz {

class AssemblyBudget {
 public:
  // A form may make kFactor times what its definition holds, in nodes and
  // in bytes, and at least the floors. A real form makes about three times
  // its definition; the floors let a small definition fill itself freely.
  static constexpr int64_t kFactor = 64;
  static constexpr int64_t kMinNodes = 100'000;
  static constexpr int64_t kMinBytes = int64_t{8} << 20;

  // Makes this the budget of the assembly running on this thread, for a
  // definition of `nodes` nodes and `bytes` bytes.
  AssemblyBudget(int64_t nodes, int64_t bytes);
  ~AssemblyBudget();
  AssemblyBudget(const AssemblyBudget&) = delete;
  AssemblyBudget& operator=(const AssemblyBudget&) = delete;

  // The budget of the assembly running on this thread; null outside one.
  static AssemblyBudget* Current();

  // Takes `nodes` nodes and `bytes` bytes of text from the budget; false,
  // and exhausted from then on, when they are not there.
  bool Take(int64_t nodes, int64_t bytes);
  bool exhausted() const { return exhausted_; }

 private:
  int64_t nodes_left_;
  int64_t bytes_left_;
  bool exhausted_ = false;
  AssemblyBudget* previous_;
};

}  // namespace formwiz
