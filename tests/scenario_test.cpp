// Whole runs of the component: each tests/scenarios/*.json is a script with
// an "expect" section, run through the script runner in-process; and the
// `formwiz script` command on the example. Invalid scripts are
// cli_test's.
//
// The facts of "expect", each one object:
//   {"at": "/json/pointer", "is": value}       the value there equals
//   {"at": "/json/pointer", "has": "text"}     the string there contains it
//   {"at": "/json/pointer", "lacks": "text"}   ... does not contain it
//   {"at": "/json/pointer", "count": n}        the array there has n members
//   {"event": {...}}                           some event matches
//   {"no event": {...}}                        no event matches
//   {"events": [{...}, ...]}                   events match in this order,
//                                              others may come between
// An event matches a pattern when every key of the pattern is in it with a
// matching value, objects compared so recursively and the rest exactly.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "component_test_support.h"
#include "script/script.h"
#include "script/sha256.h"

namespace formwiz::script {
namespace {

namespace fs = std::filesystem;

const fs::path kSourceDir = FORMWIZ_SOURCE_DIR;

bool Matches(const Json& pattern, const Json& actual) {
  if (pattern.is_object()) {
    if (!actual.is_object()) return false;
    for (const auto& [key, value] : pattern.items()) {
      auto it = actual.find(key);
      if (it == actual.end() || !Matches(value, *it)) return false;
    }
    return true;
  }
  return pattern == actual;
}

// Checks one fact; gives what is wrong, or nothing.
std::string Check(const Json& fact, const Json& transcript) {
  const Json& events = transcript["events"];
  auto matching = [](const Json& pattern) {
    return [&pattern](const Json& e) { return Matches(pattern, e); };
  };
  if (fact.contains("event")) {
    return std::ranges::any_of(events, matching(fact["event"]))
               ? ""
               : "no such event";
  }
  if (fact.contains("no event")) {
    return std::ranges::none_of(events, matching(fact["no event"]))
               ? ""
               : "there is such an event";
  }
  if (fact.contains("events")) {
    auto at = events.begin();
    for (const Json& pattern : fact["events"]) {
      at = std::find_if(at, events.end(), matching(pattern));
      if (at == events.end()) return "not in order from " + pattern.dump();
      ++at;
    }
    return "";
  }
  const Json::json_pointer pointer(fact.at("at").get<std::string>());
  if (!transcript.contains(pointer)) return "nothing there";
  const Json& value = transcript[pointer];
  const std::string is = "it is " + value.dump();
  if (fact.contains("is")) return value == fact["is"] ? "" : is;
  if (fact.contains("count")) {
    return value.size() == fact["count"]
               ? ""
               : "it has " + std::to_string(value.size());
  }
  const bool has = fact.contains("has");
  if (!has && !fact.contains("lacks")) return "a fact of no known kind";
  if (!value.is_string()) return "not a string: " + value.dump();
  const std::string part = fact[has ? "has" : "lacks"];
  return (value.get<std::string>().find(part) != std::string::npos) == has ? ""
                                                                           : is;
}

std::vector<std::string> ScenarioNames() {
  std::vector<std::string> names;
  for (const auto& entry :
       fs::directory_iterator(kSourceDir / "tests" / "scenarios")) {
    if (entry.path().extension() == ".json") {
      names.push_back(entry.path().stem().string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

class Scenario : public ::testing::TestWithParam<std::string> {};

TEST_P(Scenario, TranscriptShowsTheExpectedFacts) {
  const fs::path file =
      kSourceDir / "tests" / "scenarios" / (GetParam() + ".json");
  Json scenario = Json::parse(ReadAll(file));
  const Json expect = scenario["expect"];
  ASSERT_TRUE(expect.is_array() && !expect.empty()) << "no facts to check";
  scenario.erase("expect");

  const Json transcript =
      RunScript(ParseScript(scenario.dump(), file.parent_path()));
  bool all_hold = true;
  for (const Json& fact : expect) {
    const std::string wrong = Check(fact, transcript);
    if (!wrong.empty()) {
      all_hold = false;
      ADD_FAILURE() << fact.dump() << ": " << wrong;
    }
  }
  if (!all_hold) std::cerr << transcript.dump(1).substr(0, 30000) << '\n';
}

INSTANTIATE_TEST_SUITE_P(Scenarios, Scenario,
                         ::testing::ValuesIn(ScenarioNames()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           std::string name = info.param;
                           std::replace_if(
                               name.begin(), name.end(),
                               [](char c) { return !std::isalnum(c); }, '_');
                           return name;
                         });

TEST(Sha256, KnownDigestsAcrossThePaddingBoundary) {
  auto bytes = [](std::string_view s) {
    return std::vector<uint8_t>(s.begin(), s.end());
  };
  EXPECT_EQ(Sha256Hex({}),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Sha256Hex(bytes("abc")),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  // 56 bytes: the length no longer fits the first padding block.
  EXPECT_EQ(Sha256Hex(bytes(
                "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

}  // namespace
}  // namespace formwiz::script
