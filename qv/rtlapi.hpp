#ifndef QV_RTLAPI_HPP
#define QV_RTLAPI_HPP

/** @file The class library of the runtime layer, see the headers one by one. */

#include <qv/rtlapi/RX_AutoPtr_U.hpp>
#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_Exception_.hpp>
#include <qv/rtlapi/RX_String.hpp>
#include <qv/rtlapi/RX_fmt.hpp>

#endif
