#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/SpareHeaders.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/src/SourcePosition.hpp>

#include <atomic>
#include <cstddef>
#include <exception>
#include <locale>
#include <memory>
#include <sstream>
#include <sys/single_threaded.h>

namespace com::kor::dal::nim::log {

namespace {

/** Number of records: one for each statement that is active in the child at the same time. */
constexpr std::size_t COUNT = 32;

/** Whether a child of the fork that is under way is restricted. */
bool restrict_child = false;

}

struct SpareHeaders::Spare
{
    Header header{Header::Origin::STATEMENT, Severity_NONE, SourcePosition{"", "", 0}};
    std::atomic<bool> isInUse{false};
};

struct SpareHeaders::Stock
{
    explicit Stock(const std::locale& global) : locale(global) {}

    /** The global locale of all streams in here. */
    const std::locale locale;
    Spare spares[COUNT];
};

SpareHeaders::Stock* SpareHeaders::stock = nullptr;
bool SpareHeaders::restricted = false;

void SpareHeaders::prepare() noexcept
{
    if (restricted) {
        // A child of the child is restricted, too.
        return;
    }
    restrict_child = false;
    if (__libc_single_threaded) {
        return;
    }
    try {
        const std::locale global;
        if (global == std::locale::classic()) {
            return;
        }
        if (stock == nullptr || stock->locale != global) {
            // The first number that is inserted through a locale takes another lock of the C++ library.
            std::ostringstream number;
            number.imbue(global);
            number << 0;
            auto created = std::make_unique<Stock>(global);
            const std::unique_ptr<Stock> old(stock);
            // Never destroyed at exit, since static destructors may fork and log.
            stock = created.release();
        }
        restrict_child = true;
    } catch (const std::exception&) {
        // Without memory for the records, the child is not restricted.
    }
}

void SpareHeaders::afterForkInChild() noexcept
{
    restricted = restricted || restrict_child;
}

const std::locale& SpareHeaders::locale() noexcept
{
    return stock->locale;
}

Header* SpareHeaders::acquire(Severity severity, const SourcePosition& position)
{
    for (Spare& spare : stock->spares) {
        // Acquires the record from the release of the thread that used it last.
        if (!spare.isInUse.exchange(true, std::memory_order_acquire)) {
            spare.header.start(severity, position);
            return &spare.header;
        }
    }
    return nullptr;
}

bool SpareHeaders::release(Header& header) noexcept
{
    if (!restricted) {
        return false;
    }
    for (Spare& spare : stock->spares) {
        if (&spare.header == &header) {
            header.reset();
            spare.isInUse.store(false, std::memory_order_release);
            return true;
        }
    }
    return false;
}

}
