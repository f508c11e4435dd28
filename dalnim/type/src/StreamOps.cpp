#include <dalnim/dalbase.hpp>

#include <dalnim/type/StreamOps.hpp>
