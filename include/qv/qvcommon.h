/*
 * qvcommon.h - the whole public interface of the library in one include.
 */
#ifndef QV_QVCOMMON_H
#define QV_QVCOMMON_H

#include "qv_export.h"
#include "except.h"
#include "alloc.h"
#include "qvstring.h"

#endif
