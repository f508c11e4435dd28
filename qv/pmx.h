#ifndef QV_PMX_H
#define QV_PMX_H

/**
 * @file
 * The system interface: plain functions for C and C++. Includes all of its headers.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/atomic.h>
#include <qv/pmx/cond.h>
#include <qv/pmx/errors.h>
#include <qv/pmx/glob.h>
#include <qv/pmx/host.h>
#include <qv/pmx/init.h>
#include <qv/pmx/library.h>
#include <qv/pmx/mutex.h>
#include <qv/pmx/panic.h>
#include <qv/pmx/path.h>
#include <qv/pmx/rwlock.h>
#include <qv/pmx/thread.h>
#include <qv/pmx/thread_safety.h>
#include <qv/pmx/time.h>
#include <qv/pmx/types.h>

#endif
