// Shared objects that are no working VST 2 plug-in, for the host's refusal
// tests: one without an entry point, and (REFUSING) one whose only entry
// point is the older name "main" and makes no instance.
#ifdef REFUSING
extern "C" __attribute__((visibility("default"))) void* refusingMain(void*) asm("main");
extern "C" void* refusingMain(void*) { return nullptr; }
#else
extern "C" __attribute__((visibility("default"))) int varitapTestNotAPlugin() { return 42; }
#endif
