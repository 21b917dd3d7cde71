// A module the module-load tests load at run time, with one exported function.
#ifdef _WIN32
#define TEST_MODULE_EXPORT __declspec(dllexport)
#else
#define TEST_MODULE_EXPORT __attribute__((visibility("default")))
#endif

extern "C" TEST_MODULE_EXPORT int ZelTestModuleAnswer() { return 42; }
