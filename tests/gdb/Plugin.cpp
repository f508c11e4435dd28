// The plug-in of gdb_subject.
extern "C" __attribute__((visibility("default"))) int gdb_plugin_answer();

extern "C" int gdb_plugin_answer()
{
    return 42;
}
