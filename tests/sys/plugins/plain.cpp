// A plug-in with a variable and functions, which depends on another library.

#define EXPORTED extern "C" __attribute__((visibility("default")))

extern "C" int dyn_base_function();

EXPORTED int dyn_plain_value;
int dyn_plain_value = 17;

EXPORTED int dyn_plain_function(int argument);
int dyn_plain_function(int argument)
{
    return argument + dyn_plain_value;
}

EXPORTED int dyn_plain_use_of_base();
int dyn_plain_use_of_base()
{
    return dyn_base_function() + 1;
}
