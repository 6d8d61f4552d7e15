// The sanitizers' settings for the programs that run Qt WebEngine. Its
// browser process is Chromium, built into libQt6WebEngineCore without the
// sanitizers: it frees some objects through a base of another size, which
// AddressSanitizer's new/delete size check reports inside that library at
// start-up, and it keeps some allocations (its fontconfig and udev set-up
// among them) to the end on purpose. The size check cannot be limited to one
// library, so these programs go without it; every other check stays, and
// only leaks whose stack is in the Qt WebEngine libraries, fontconfig or
// udev (which formwiz never calls) are let through.
#if defined(__SANITIZE_ADDRESS__)
extern "C" const char* __asan_default_options() {
  return "new_delete_type_mismatch=0";
}
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libQt6WebEngineCore.so\n"
         "leak:libQt6WebEngineWidgets.so\n"
         "leak:libfontconfig.so\n"
         "leak:libudev.so\n";
}
#endif
