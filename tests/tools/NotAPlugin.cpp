// A shared object with no VST 2 entry point, for the host's refusal tests.
extern "C" __attribute__((visibility("default"))) int varitapTestNotAPlugin() { return 42; }
