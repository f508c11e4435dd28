#ifndef DALNIM_NIM_HPP
#define DALNIM_NIM_HPP

/**
 * @file
 * Includes every public header of the library.
 */

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/nsdefs.hpp>

#include <dalnim/sys/CrashReport.hpp>
#include <dalnim/sys/DynLibrary.hpp>
#include <dalnim/sys/DynLoaderMgr.hpp>
#include <dalnim/sys/DynSymbol.hpp>
#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/LoaderStatistics.hpp>
#include <dalnim/sys/StackTrace.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/sys/ThreadReport.hpp>
#include <dalnim/sys/UniqueID.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/Internal.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/sys/internal/ThreadStateBitHolder.hpp>
#include <dalnim/sys/internal/nsdefs.hpp>
#include <dalnim/sys/nsdefs.hpp>

#include <dalnim/mem/ConstRcoRef.hpp>
#include <dalnim/mem/MemOps.hpp>
#include <dalnim/mem/ObjectHolder.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mem/RefCntObject.hpp>
#include <dalnim/mem/RefCntObjectRef.hpp>
#include <dalnim/mem/nsdefs.hpp>

#include <dalnim/mt/CondSem.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/FlagArgument.hpp>
#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/mt/MutexOps.hpp>
#include <dalnim/mt/PoolStatistics.hpp>
#include <dalnim/mt/Queue.hpp>
#include <dalnim/mt/QueueElement.hpp>
#include <dalnim/mt/ReaderWriterLock.hpp>
#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/RunningTask.hpp>
#include <dalnim/mt/SysMutex.hpp>
#include <dalnim/mt/SysMutexCondSem.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/mt/Watchdog.hpp>
#include <dalnim/mt/nsdefs.hpp>

#include <dalnim/type/Cloneable.hpp>
#include <dalnim/type/CompositeString.hpp>
#include <dalnim/type/ContainerContext.hpp>
#include <dalnim/type/Context.hpp>
#include <dalnim/type/ContextScope.hpp>
#include <dalnim/type/ContextStatistics.hpp>
#include <dalnim/type/NumberOps.hpp>
#include <dalnim/type/Object.hpp>
#include <dalnim/type/Raiseable.hpp>
#include <dalnim/type/RegExp.hpp>
#include <dalnim/type/SecurityContext.hpp>
#include <dalnim/type/StdVectors.hpp>
#include <dalnim/type/StreamOps.hpp>
#include <dalnim/type/StringOps.hpp>
#include <dalnim/type/StringPair.hpp>
#include <dalnim/type/nsdefs.hpp>

#include <dalnim/io/Base64.hpp>
#include <dalnim/io/Config.hpp>
#include <dalnim/io/Decoder.hpp>
#include <dalnim/io/Encoder.hpp>
#include <dalnim/io/Encoding.hpp>
#include <dalnim/io/EncodingBase.hpp>
#include <dalnim/io/FsOps.hpp>
#include <dalnim/io/HexDump.hpp>
#include <dalnim/io/MetricsText.hpp>
#include <dalnim/io/Properties.hpp>
#include <dalnim/io/nsdefs.hpp>

#include <dalnim/log/Common.hpp>
#include <dalnim/log/Control.hpp>
#include <dalnim/log/Field.hpp>
#include <dalnim/log/FieldReader.hpp>
#include <dalnim/log/FieldWriter.hpp>
#include <dalnim/log/Header.hpp>
#include <dalnim/log/Log.hpp>
#include <dalnim/log/LogFile.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/ModuleRegistration.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/log/StatementThrottle.hpp>
#include <dalnim/log/Statistics.hpp>
#include <dalnim/log/ThrottledStatement.hpp>
#include <dalnim/log/TimeFormat.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/log/nsdefs.hpp>

#include <dalnim/xml/AggregateConsumer.hpp>
#include <dalnim/xml/Attribute.hpp>
#include <dalnim/xml/Consumer.hpp>
#include <dalnim/xml/Parser.hpp>
#include <dalnim/xml/nim_opbparse.h>
#include <dalnim/xml/nsdefs.hpp>

#endif
