// libsystemd is not instrumented: the thread sanitizer does not see that it passes its socket from one thread
// to another by an atomic variable. Calls that the library makes are therefore ignored.
extern "C" __attribute__((visibility("default"), used)) const char* __tsan_default_suppressions()
{
    return "called_from_lib:libsystemd.so\n";
}
