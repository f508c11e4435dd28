#ifndef QV_RTLAPI_RX_HASHSET_U_HPP
#define QV_RTLAPI_RX_HASHSET_U_HPP

#include <cstddef>
#include <memory>

#include <qv/rtlapi/RX_ElemWrap.hpp>
#include <qv/rtlapi/RX_HTable_.hpp>
#include <qv/rtlapi/RX_Set_U.hpp>

/**
 * A hash set of RX_String, of integers, or of any type with `RX_hash` and `operator==`. Operations take
 * constant time on average; the order of the elements is unspecified.
 */
template <typename T>
class RX_HashSet_U : public RX_Set_U<T>
{
public:
    /** Constructs an empty set, with memory reserved for `expected` elements. */
    explicit RX_HashSet_U(std::size_t expected = 0) : _table(expected) {}

    qv_bool_t get(const T& key, T& elem) const override
    {
        const Elem* const found = _table.find(Elem(key));
        if (found == nullptr) {
            return 0;
        }
        elem = found->value();
        return 1;
    }

    qv_bool_t contains(const T& elem) const override
    {
        return _table.find(Elem(elem)) != nullptr;
    }
    qv_bool_t add(const T& elem) override
    {
        return _table.insert(Elem(elem));
    }
    qv_bool_t remove(const T& elem) override
    {
        return _table.erase(Elem(elem));
    }
    void removeAll() override
    {
        _table.clear();
    }
    std::size_t size() const override
    {
        return _table.size();
    }
    qv_bool_t isEmpty() const override
    {
        return _table.size() == 0;
    }

    std::unique_ptr<RX_SetCursor_U<T>> newCursor() const override
    {
        return std::make_unique<Cursor>(_table);
    }

private:
    typedef RX_ElemWrap<T> Elem;
    typedef RX_HTable_<Elem> Table;

    /** Is one element past the last one that it returned, so that this one may be removed. */
    class Cursor : public RX_SetCursor_U<T>
    {
    public:
        explicit Cursor(const Table& table) : _table(table), _next(table.begin()), _changes(table.changes())
        {
        }

        const T* next() override
        {
            return _next == _table.end() ? nullptr : &(_next++)->value();
        }
        bool isOutdated() const override
        {
            return _changes != _table.changes();
        }
        void refresh() override
        {
            _changes = _table.changes();
        }

    private:
        const Table& _table;
        typename Table::Place _next;
        std::size_t _changes;
    };

    Table _table;
};

#endif
