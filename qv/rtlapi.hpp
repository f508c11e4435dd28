#ifndef QV_RTLAPI_HPP
#define QV_RTLAPI_HPP

/**
 * @file
 * The class library of the runtime layer. Includes all of its headers.
 */

#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_ActivityRecorder.hpp>
#include <qv/rtlapi/RX_AutoPtr_U.hpp>
#include <qv/rtlapi/RX_Closure.hpp>
#include <qv/rtlapi/RX_Closure0S.hpp>
#include <qv/rtlapi/RX_ClosureM0.hpp>
#include <qv/rtlapi/RX_ClosureM0S.hpp>
#include <qv/rtlapi/RX_ClosureMS_.hpp>
#include <qv/rtlapi/RX_ClosureM_.hpp>
#include <qv/rtlapi/RX_ClosureS_.hpp>
#include <qv/rtlapi/RX_ClosureSync_.hpp>
#include <qv/rtlapi/RX_Closure_.hpp>
#include <qv/rtlapi/RX_CollectionErrors_.hpp>
#include <qv/rtlapi/RX_Condition.hpp>
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
#include <qv/rtlapi/RX_Lockable.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/RX_Monitor.hpp>
#include <qv/rtlapi/RX_Mutex.hpp>
#include <qv/rtlapi/RX_NullMutex.hpp>
#include <qv/rtlapi/RX_RWLock.hpp>
#include <qv/rtlapi/RX_RefCounted_PRIVATE_.hpp>
#include <qv/rtlapi/RX_RelTime.hpp>
#include <qv/rtlapi/RX_ServerQueue.hpp>
#include <qv/rtlapi/RX_SetCursor_U.hpp>
#include <qv/rtlapi/RX_SetIterator_U.hpp>
#include <qv/rtlapi/RX_SetModifier_U.hpp>
#include <qv/rtlapi/RX_Set_U.hpp>
#include <qv/rtlapi/RX_String.hpp>
#include <qv/rtlapi/RX_Thread.hpp>
#include <qv/rtlapi/RX_Time.hpp>
#include <qv/rtlapi/RX_Vector_U.hpp>
#include <qv/rtlapi/RX_Wildcard.hpp>
#include <qv/rtlapi/RX_fmt.hpp>
#include <qv/rtlapi/RX_hash.hpp>

#endif
