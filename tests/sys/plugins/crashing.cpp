/** Crashes in this library, unless it is given a function, which it calls. */
extern "C" __attribute__((visibility("default"))) void crash_in_plugin(void (*function)())
{
    if (function != nullptr) {
        function();
    }
    *reinterpret_cast<volatile int*>(24) = 1;
}
