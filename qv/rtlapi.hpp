#ifndef QV_RTLAPI_HPP
#define QV_RTLAPI_HPP

/** @file The class library of the runtime layer, see the headers one by one. */

#include <qv/rtlapi/RX_AutoPtr_U.hpp>
#include <qv/rtlapi/RX_CollectionErrors_.hpp>
#include <qv/rtlapi/RX_ElemWrap.hpp>
#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_Exception_.hpp>
#include <qv/rtlapi/RX_Filespec.hpp>
#include <qv/rtlapi/RX_FilespecIterator.hpp>
#include <qv/rtlapi/RX_HTable_.hpp>
#include <qv/rtlapi/RX_HashSet_U.hpp>
#include <qv/rtlapi/RX_SetCursor_U.hpp>
#include <qv/rtlapi/RX_SetIterator_U.hpp>
#include <qv/rtlapi/RX_SetModifier_U.hpp>
#include <qv/rtlapi/RX_Set_U.hpp>
#include <qv/rtlapi/RX_String.hpp>
#include <qv/rtlapi/RX_Vector_U.hpp>
#include <qv/rtlapi/RX_Wildcard.hpp>
#include <qv/rtlapi/RX_fmt.hpp>
#include <qv/rtlapi/RX_hash.hpp>

#endif
