#include "host/html_parse.h"

#include <time.h>

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace formwiz::host {
namespace {

// Each block gumbo asks for is preceded by this header, which links it into
// the arena's list; 32 bytes keep malloc's alignment for what follows.
struct alignas(16) BlockHeader {
  BlockHeader* prev;
  BlockHeader* next;
  size_t size;
};
static_assert(sizeof(BlockHeader) % alignof(std::max_align_t) == 0);

// Memory: a fixed allowance and a multiple of the input, well above what
// real pages take (seventeen times a 32 MiB page of ordinary markup).
constexpr size_t kMemoryBase = size_t{128} << 20;
constexpr size_t kMemoryPerInputByte = 32;
// CPU time: gumbo reads ordinary markup at some 10 MiB a second, the
// sanitizer build at a third of that; a page may take two seconds plus half
// a second per MiB before it is given up.
constexpr int64_t kTimeBaseNs = 2'000'000'000;
constexpr int64_t kTimePerMiBNs = 500'000'000;
// The clock is read every this many allocations: gumbo allocates for every
// token, so the work between two readings stays small.
constexpr uint64_t kClockEvery = 256;

int64_t ThreadCpuNs() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

struct HtmlParse::Arena {
  BlockHeader list{&list, &list, 0};
  size_t live = 0;
  size_t limit = 0;
  uint64_t calls = 0;
  int64_t deadline_ns = 0;
  const char* why = nullptr;
  std::jmp_buf stop;

  void FreeAll() {
    while (list.next != &list) {
      BlockHeader* block = list.next;
      list.next = block->next;
      std::free(block);
    }
    list.prev = &list;
    live = 0;
  }
};

namespace {

// Leaves gumbo by longjmp: it is C and holds nothing that needs unwinding,
// and every byte it holds is in the arena, which is freed after. This frame
// holds no object with a destructor, which keeps the jump defined.
[[noreturn]] void Stop(HtmlParse::Arena& arena, const char* why) {
  arena.why = why;
  std::longjmp(arena.stop, 1);
}

void* Allocate(void* userdata, size_t size) {
  auto& arena = *static_cast<HtmlParse::Arena*>(userdata);
  if (++arena.calls % kClockEvery == 0 && ThreadCpuNs() > arena.deadline_ns) {
    Stop(arena, "too complex to read (the parse took too long)");
  }
  if (size > arena.limit - arena.live) {
    Stop(arena, "too complex to read (the parse needs too much memory)");
  }
  auto* block =
      static_cast<BlockHeader*>(std::malloc(sizeof(BlockHeader) + size));
  if (block == nullptr) Stop(arena, "out of memory while reading");
  block->size = size;
  block->prev = arena.list.prev;
  block->next = &arena.list;
  arena.list.prev->next = block;
  arena.list.prev = block;
  arena.live += size;
  return block + 1;
}

void Deallocate(void* userdata, void* pointer) {
  if (pointer == nullptr) return;
  auto& arena = *static_cast<HtmlParse::Arena*>(userdata);
  BlockHeader* block = static_cast<BlockHeader*>(pointer) - 1;
  block->prev->next = block->next;
  block->next->prev = block->prev;
  arena.live -= block->size;
  std::free(block);
}

// The setjmp stays in a frame of its own with nothing to destroy.
GumboOutput* Run(HtmlParse::Arena& arena, const GumboOptions& options,
                 std::string_view text) {
  if (setjmp(arena.stop) != 0) return nullptr;
  return gumbo_parse_with_options(&options, text.data(), text.size());
}

}  // namespace

HtmlParse::HtmlParse(std::string_view text, GumboTag context)
    : arena_(std::make_unique<Arena>()), options_(kGumboDefaultOptions) {
  options_.fragment_context = context;
  arena_->limit = kMemoryBase + kMemoryPerInputByte * text.size();
  arena_->deadline_ns =
      ThreadCpuNs() + kTimeBaseNs +
      static_cast<int64_t>(text.size() >> 10) * (kTimePerMiBNs >> 10);
  options_.allocator = Allocate;
  options_.deallocator = Deallocate;
  options_.userdata = arena_.get();
  // Nobody reads the parse errors; recorded, they would cost memory in
  // proportion to a broken page.
  options_.max_errors = 0;
  output_ = Run(*arena_, options_, text);
  if (output_ == nullptr) {
    error_ = arena_->why != nullptr ? arena_->why : "could not be read";
    arena_->FreeAll();
  }
}

// Every byte of the tree is in the arena: freed in one pass over it, with
// no walk of the tree (whose depth is the page's to choose).
HtmlParse::~HtmlParse() { arena_->FreeAll(); }

}  // namespace formwiz::host
