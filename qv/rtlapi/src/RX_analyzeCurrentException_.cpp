#include <cerrno>
#include <exception>
#include <new>
#include <system_error>
#include <typeinfo>

#include <cxxabi.h>

#include <qv/pmx/errors.h>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/src/typeName.hpp>

namespace {

RX_Exception* describeUnknown()
{
    const std::type_info* const type = abi::__cxa_current_exception_type();
    return new RX_ExFatal(QV_RX_UNKNOWN_EXCEPTION, type != nullptr ? qv::typeName(*type) : RX_String::none);
}

bool isSystemError(const std::error_code& code)
{
    return code.category() == std::system_category() || code.category() == std::generic_category();
}

}

RX_Exception* RX_analyzeCurrentException_()
{
    if (!std::current_exception()) {
        return nullptr;
    }
    try {
        throw;
    } catch (const RX_Exception& exception) {
        return exception.clone();
    } catch (const std::system_error& exception) {
        const bool isNumbered = isSystemError(exception.code()) && exception.code().value() != 0;
        return new RX_ExFatal(isNumbered ? exception.code().value() : QV_RX_STD_EXCEPTION, exception.what());
    } catch (const std::bad_alloc& exception) {
        return new RX_ExFatal(ENOMEM, exception.what());
    } catch (const std::exception& exception) {
        return new RX_ExFatal(QV_RX_STD_EXCEPTION, exception.what());
    } catch (...) {
        return describeUnknown();
    }
}
