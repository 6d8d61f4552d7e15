// Leaks on purpose. The sanitizer build runs it as a test that passes only
// when LeakSanitizer reports the leak, so a run of the suite in which leak
// checking is off (detect_leaks=0, a debugger, a platform without it) fails
// instead of passing quietly.
#include <thread>

namespace {

// Volatile, so the store is not left out; cleared, so nothing reaches the
// block any more.
int* volatile sink = nullptr;

}  // namespace

int main() {
  // Made on a thread that then ends: no stale copy of the pointer is left
  // on a stack that the leak check scans.
  std::thread([] {
    sink = new int[16];
    sink = nullptr;
  }).join();
  return 0;
}
