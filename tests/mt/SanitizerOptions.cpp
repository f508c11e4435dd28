// The tests misuse locks to see the misuse refused. The thread sanitizer is to leave that to them.
extern "C" __attribute__((visibility("default"), used)) const char* __tsan_default_options()
{
    return "report_mutex_bugs=0:report_destroy_locked=0";
}
