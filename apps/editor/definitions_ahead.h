// The page's stored definitions, parsed ahead on a worker thread while the
// person looks at the page, so that opening a form of ten thousand fields
// finds its tree ready instead of spending frames in the XML parser. The
// parse itself, and what is held, is the tree's business
// (formdoc/parse_ahead.h); this only decides when and on which thread.
#pragma once

#include <QThreadPool>

#include "host/page.h"

namespace formwiz::editor {

class DefinitionsAhead {
 public:
  DefinitionsAhead();
  // Drops what is queued and waits for the parse under way.
  ~DefinitionsAhead();
  DefinitionsAhead(const DefinitionsAhead&) = delete;
  DefinitionsAhead& operator=(const DefinitionsAhead&) = delete;

  // Queues every stored definition of `page` that is not held yet. Called
  // after each change, and after each open, which takes the tree it used.
  void Queue(const host::Page& page);
  // Lets go of the trees of a page that is no longer shown.
  void Forget();
  // Waits until every queued definition is parsed (for tests).
  void Wait();

 private:
  QThreadPool pool_;
};

}  // namespace formwiz::editor
