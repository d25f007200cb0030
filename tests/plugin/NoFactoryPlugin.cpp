// A shared library that looks like a plug-in but exports no factory.
extern "C" __attribute__((visibility("default"))) int NotAPlugin(void) { return 42; }
