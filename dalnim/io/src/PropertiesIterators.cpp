#include <dalnim/dalbase.hpp>

#include <dalnim/io/Properties.hpp>

namespace com::kor::dal::nim::io {

Properties::Iterator Properties::begin() noexcept
{
    return Iterator(data.begin());
}

Properties::Iterator Properties::end() noexcept
{
    return Iterator(data.end());
}

Properties::ConstIterator Properties::begin() const noexcept
{
    return ConstIterator(data.begin());
}

Properties::ConstIterator Properties::end() const noexcept
{
    return ConstIterator(data.end());
}

Properties::Iterator::Iterator(Data::iterator position) noexcept : it(position) {}

bool Properties::Iterator::operator==(const Iterator& r) const noexcept
{
    return it == r.it;
}

bool Properties::Iterator::operator==(const ConstIterator& r) const noexcept
{
    return it == r.it;
}

bool Properties::Iterator::operator!=(const Iterator& r) const noexcept
{
    return it != r.it;
}

bool Properties::Iterator::operator!=(const ConstIterator& r) const noexcept
{
    return it != r.it;
}

Properties::Iterator& Properties::Iterator::operator++() noexcept
{
    ++it;
    return *this;
}

Properties::Iterator Properties::Iterator::operator++(int) noexcept
{
    return Iterator(it++);
}

Properties::Iterator::reference Properties::Iterator::operator*() const noexcept
{
    return *it;
}

Properties::Iterator::pointer Properties::Iterator::operator->() const noexcept
{
    return &*it;
}

Properties::ConstIterator::ConstIterator(Data::const_iterator position) noexcept : it(position) {}

Properties::ConstIterator::ConstIterator(const Iterator& r) noexcept : it(r.it) {}

bool Properties::ConstIterator::operator==(const ConstIterator& r) const noexcept
{
    return it == r.it;
}

bool Properties::ConstIterator::operator==(const Iterator& r) const noexcept
{
    return it == r.it;
}

bool Properties::ConstIterator::operator!=(const ConstIterator& r) const noexcept
{
    return it != r.it;
}

bool Properties::ConstIterator::operator!=(const Iterator& r) const noexcept
{
    return it != r.it;
}

Properties::ConstIterator& Properties::ConstIterator::operator++() noexcept
{
    ++it;
    return *this;
}

Properties::ConstIterator Properties::ConstIterator::operator++(int) noexcept
{
    return ConstIterator(it++);
}

Properties::ConstIterator::reference Properties::ConstIterator::operator*() const noexcept
{
    return *it;
}

Properties::ConstIterator::pointer Properties::ConstIterator::operator->() const noexcept
{
    return &*it;
}

}
