// Definitions of any size for the benchmarks, shaped like the bundled orb.
#pragma once

#include <string>

namespace formwiz::bench {

// A definition with `fields` field nodes: a placeholder, three form choices,
// two templates, and an "orb" form whose table holds the fields (lines and
// areas in turn, with names, prompts and sizes of realistic length, every
// kind of included character) with the indentation and comments between
// elements that a hand-written definition has, and a submit button behind
// the table, and the hidden fields a finished wizard stores in the form
// (the first form choice is the chosen one).
std::string GeneratedDefinition(int fields);

}  // namespace formwiz::bench
