#include <dalnim/dalbase.hpp>

#include <dalnim/type/StringPair.hpp>

template struct std::pair<com::kor::dal::nim::String, com::kor::dal::nim::String>;
