// What each fuzz target asks of one input. The targets and the test that
// replays fuzz/regressions/ share these checks, so an input that once failed
// a target is checked the same way in every build of the test suite.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace formwiz::fuzz {

// Each check gives what is wrong with the way the system handled `input`,
// or the empty string. A crash, a leak or undefined behaviour shows through
// the sanitizers instead.

// Whatever LoadXml takes serialises, loads back and serialises the same.
std::string CheckXmlRoundTrip(std::string_view input);

// The input is a definition, optionally behind one byte that picks the form
// choice (see checks.cpp). It goes through a commit's steps: assembly, field
// order, finishing the HTML. The HTML, with the end tags that HTML leaves
// off written back, loads as XML and comes back as the same HTML.
std::string CheckAssembly(std::string_view input);

// The input is a `formwiz script`: it is refused with one line saying where
// and what, or it runs, and nothing gets out of the component.
std::string CheckScript(std::string_view input);

// A page file is refused with a reason, or read and written back byte for
// byte; a file of an older version is written as the current one, which
// reads back as the same page and writes back byte for byte.
std::string CheckPageFile(std::string_view input);

struct Target {
  const char* name;  // the fuzz target, and its folder in fuzz/regressions
  std::string (*check)(std::string_view input);
};

inline constexpr Target kTargets[] = {
    {"xml_fuzz", CheckXmlRoundTrip},
    {"assembly_fuzz", CheckAssembly},
    {"script_fuzz", CheckScript},
    {"page_fuzz", CheckPageFile},
};

// The body of a fuzz target: a failed check is a crash, with its reason.
inline int RunCheck(std::string (*check)(std::string_view), const uint8_t* data,
                    size_t size) {
  const std::string problem =
      check(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!problem.empty()) {
    std::fprintf(stderr, "check failed: %s\n", problem.c_str());
    std::abort();
  }
  return 0;
}

}  // namespace formwiz::fuzz
