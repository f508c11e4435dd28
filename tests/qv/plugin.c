/* A library to be loaded by the tests. */

__attribute__((visibility("default"))) int qv_test_plugin_value = 17;

__attribute__((visibility("default"))) int qv_test_plugin_function(int argument)
{
    return argument + qv_test_plugin_value;
}
