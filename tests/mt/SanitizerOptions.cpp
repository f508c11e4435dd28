// The tests check that misuse of locks is rejected; the thread sanitizer must not report it.
extern "C" __attribute__((visibility("default"), used)) const char* __tsan_default_options()
{
    return "report_mutex_bugs=0:report_destroy_locked=0";
}
