#include <dalnim/dalbase.hpp>

#include <dalnim/log/Statement.hpp>

#include <dalnim/log/src/RecordBuffer.hpp>
#include <dalnim/log/src/SourcePosition.hpp>
#include <dalnim/log/src/StatementScope.hpp>
#include <dalnim/log/src/ThreadHeaderCache.hpp>

#include <new>

namespace com::kor::dal::nim::log {

Header& Statement::header(const char* file, unsigned int line, std::string_view fileBaseName)
{
    StatementScope scope(this, __builtin_frame_address(0));
    const SourcePosition position = {file, fileBaseName, line};
    record = ThreadHeaderCache::acquire(severity, position);
    if (record == nullptr) {
        record = ::new (own) Header(Header::Origin::STATEMENT, severity, position);
    }
    scope.keep();
    return *record;
}

void Statement::appendToText(std::string_view addition)
{
    record->lineBuffer().append(addition);
}

void Statement::end() noexcept
{
    if (!ThreadHeaderCache::release(*record)) {
        record->~Header();
    }
    StatementScope::leave(this);
}

}
