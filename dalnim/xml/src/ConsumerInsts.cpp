#include <dalnim/dalbase.hpp>

#include <dalnim/xml/Consumer.hpp>

template class com::kor::dal::nim::mem::ConstRcoRef<com::kor::dal::nim::xml::Consumer>;
template class com::kor::dal::nim::mem::RcoRef<com::kor::dal::nim::xml::Consumer>;

template class std::vector<com::kor::dal::nim::xml::Attribute>;
template class std::vector<com::kor::dal::nim::xml::ConsumerRef>;
