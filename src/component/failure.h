// Failures: what a host object, the tree or the platform raises, and the one
// helper that turns anything thrown inside a trapped operation into a Failure.
#pragma once

#include <cstdint>
#include <exception>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace formwiz {

// A failure as the classic runtime knows it: a 32-bit number and a text.
struct Failure {
  int32_t number = 0;
  std::string description;

  bool operator==(const Failure&) const = default;
};

// The runtime's numbers, and the only place their texts are written.
namespace err {
inline constexpr int32_t kInvalidArgument = 5;
inline constexpr int32_t kOverflow = 6;
inline constexpr int32_t kOutOfMemory = 7;
inline constexpr int32_t kSubscriptOutOfRange = 9;
inline constexpr int32_t kTypeMismatch = 13;
inline constexpr int32_t kFileNotFound = 53;
inline constexpr int32_t kPathFileAccess = 75;
inline constexpr int32_t kObjectNotSet = 91;
inline constexpr int32_t kCannotCreateObject = 429;
}  // namespace err

// The runtime's description for `number`; empty for a number of no table row.
const char* RuntimeDescription(int32_t number);

// The failure with the runtime's own text for `number`.
inline Failure RuntimeFailure(int32_t number) {
  return Failure{number, RuntimeDescription(number)};
}

// Throws the runtime failure `number`.
[[noreturn]] void Raise(int32_t number);

// Throws `failure`.
[[noreturn]] inline void Raise(Failure failure) { throw std::move(failure); }

// The failure that stands for the exception in flight. Call only inside a
// catch block.
Failure CurrentFailure();

// Runs `body`; gives the failure that ended it, or nothing when it ran
// through. Everything thrown is caught, so no exception passes a trap.
template <typename Body>
std::optional<Failure> Catch(Body&& body) {
  try {
    std::forward<Body>(body)();
  } catch (...) {
    return CurrentFailure();
  }
  return std::nullopt;
}

}  // namespace formwiz
