#include "definitions_ahead.h"

#include <string>
#include <utility>

#include "formdoc/parse_ahead.h"

namespace formwiz::editor {

DefinitionsAhead::DefinitionsAhead() {
  // One thread, and a low one: the other core is the page view's, and the
  // person's clicks come first.
  pool_.setMaxThreadCount(1);
  pool_.setThreadPriority(QThread::LowPriority);
}

DefinitionsAhead::~DefinitionsAhead() {
  pool_.clear();
  pool_.waitForDone();
}

void DefinitionsAhead::Queue(const host::Page& page) {
  for (const host::PageBlock& block : page.blocks) {
    if (!block.object || !block.object->html_data) continue;
    std::string text;
    if (!block.object->html_data->ToText(text) || IsParsedAhead(text)) {
      continue;
    }
    // A definition queued twice (two changes in a row) is parsed once: the
    // second finds it held.
    pool_.start([text = std::move(text)] { ParseAhead(text); });
  }
}

void DefinitionsAhead::Forget() {
  pool_.clear();
  pool_.waitForDone();
  DropParsedAhead();
}

void DefinitionsAhead::Wait() { pool_.waitForDone(); }

}  // namespace formwiz::editor
