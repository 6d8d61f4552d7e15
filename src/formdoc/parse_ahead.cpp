// The trees parsed ahead, held for the thread that opens them. The lock
// guards only the list: parsing and freeing trees happen outside it, and a
// tree changes threads whole, through the list, so the nodes' plain counts
// are never touched by two threads at once.
#include "formdoc/parse_ahead.h"

#include <algorithm>
#include <list>
#include <mutex>
#include <string>
#include <utility>

#include "formdoc/kelxml_node.h"

namespace formwiz {
namespace {

struct Held {
  std::string text;
  detail::NodeRef tree;
};

class Store {
 public:
  bool Holds(std::string_view xml) {
    std::lock_guard lock(mutex_);
    return Find(xml) != held_.end();
  }

  // Keeps `tree` as the parse of `text`, unless that text is held already.
  void Keep(std::string_view text, detail::NodeRef tree) {
    std::list<Held> dropped;  // freed after the lock is let go
    std::lock_guard lock(mutex_);
    if (Find(text) != held_.end()) return;
    held_.push_back(Held{std::string(text), std::move(tree)});
    bytes_ += text.size();
    while (bytes_ > kParseAheadBytes) {
      bytes_ -= held_.front().text.size();
      dropped.splice(dropped.end(), held_, held_.begin());
    }
  }

  detail::NodeRef Take(std::string_view xml) {
    std::list<Held> taken;
    std::lock_guard lock(mutex_);
    const auto found = Find(xml);
    if (found == held_.end()) return {};
    bytes_ -= found->text.size();
    taken.splice(taken.end(), held_, found);
    return std::move(taken.front().tree);
  }

  void Clear() {
    std::list<Held> dropped;
    std::lock_guard lock(mutex_);
    dropped.swap(held_);
    bytes_ = 0;
  }

 private:
  // Few trees are held, a page's definitions, and texts of different length
  // differ at once; equal lengths are compared whole.
  std::list<Held>::iterator Find(std::string_view xml) {
    return std::find_if(held_.begin(), held_.end(),
                        [&](const Held& h) { return h.text == xml; });
  }

  std::mutex mutex_;
  std::list<Held> held_;
  size_t bytes_ = 0;
};

Store& TheStore() {
  static Store store;
  return store;
}

}  // namespace

bool ParseAhead(std::string_view xml) {
  if (xml.size() > kParseAheadBytes) return false;
  if (TheStore().Holds(xml)) return true;
  detail::NodeRef tree = detail::ParseTree(xml);
  if (!tree) return false;
  TheStore().Keep(xml, std::move(tree));
  return true;
}

bool IsParsedAhead(std::string_view xml) { return TheStore().Holds(xml); }

void DropParsedAhead() { TheStore().Clear(); }

namespace detail {

NodeRef TakeParsedAhead(std::string_view xml) { return TheStore().Take(xml); }

}  // namespace detail

}  // namespace formwiz
