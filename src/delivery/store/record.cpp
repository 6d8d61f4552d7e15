#include "delivery/store/record.h"

#include <array>
#include <utility>

namespace formwiz::store {
namespace {

// The names are stored in the database: changing one needs a migration.
constexpr std::array<std::pair<Status, std::string_view>, 5> kNames = {{
    {Status::kQueued, "queued"},
    {Status::kSent, "sent"},
    {Status::kFailed, "failed"},
    {Status::kRefused, "refused"},
    {Status::kSpam, "spam"},
}};

}  // namespace

std::string_view StatusName(Status status) {
  for (const auto& [value, name] : kNames) {
    if (value == status) return name;
  }
  return "queued";
}

std::optional<Status> StatusFromName(std::string_view name) {
  for (const auto& [value, known] : kNames) {
    if (known == name) return value;
  }
  return std::nullopt;
}

}  // namespace formwiz::store
