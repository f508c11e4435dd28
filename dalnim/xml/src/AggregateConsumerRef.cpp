#include <dalnim/dalbase.hpp>

#include <dalnim/xml/AggregateConsumer.hpp>

namespace com::kor::dal::nim::mem {

template class ConstRcoRef<xml::AggregateConsumer>;
template class RcoRef<xml::AggregateConsumer>;

}
