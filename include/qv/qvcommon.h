/*
 * qvcommon.h - the whole public interface of the library in one include.
 */
#ifndef QV_QVCOMMON_H
#define QV_QVCOMMON_H

#include "qv_export.h"
#include "except.h"
#include "alloc.h"
#include "platform.h"
#include "feedback.h"
#include "message.h"
#include "msgclass.h"
#include "qvlist.h"
#include "array.h"
#include "pageptrs.h"
#include "handle.h"
#include "dataline.h"
#include "datatype.h"
#include "precise.h"
#include "date.h"
#include "interval.h"
#include "dataval.h"
#include "qvstring.h"
#include "encoding.h"
#include "textutil.h"
#include "qvstrlib.h"
#include "qvvar.h"
#include "builtin.h"
#include "express.h"

#endif
