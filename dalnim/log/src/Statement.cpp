#include <dalnim/dalbase.hpp>

#include <dalnim/log/Statement.hpp>

#include <dalnim/log/src/StatementScope.hpp>
#include <dalnim/log/src/ThreadHeaderCache.hpp>

#include <new>

namespace com::kor::dal::nim::log {

Header& Statement::header(const char* file, unsigned int line)
{
    StatementScope scope(this, __builtin_frame_address(0));
    record = ThreadHeaderCache::acquire(severity, file, line);
    if (record == nullptr) {
        record = ::new (own) Header(Header::Origin::STATEMENT, severity, file, line);
    }
    scope.keep();
    return *record;
}

void Statement::end() noexcept
{
    if (!ThreadHeaderCache::release(*record)) {
        record->~Header();
    }
    StatementScope::leave(this);
}

}
