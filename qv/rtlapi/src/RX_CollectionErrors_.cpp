#include <qv/rtlapi/RX_CollectionErrors_.hpp>

#include <qv/pmx/errors.h>
#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_fmt.hpp>

void RX_raiseIndexRange_(std::size_t index, std::size_t size)
{
    throw RX_ExError(QV_RX_INDEX_RANGE, RX_fmt(index), RX_fmt(size));
}

void RX_raiseNoElement_()
{
    throw RX_ExError(QV_RX_NO_ELEMENT);
}

void RX_raiseIteratorEnd_()
{
    throw RX_ExError(QV_RX_ITERATOR_END);
}

void RX_raiseSetChanged_()
{
    throw RX_ExError(QV_RX_SET_CHANGED);
}
