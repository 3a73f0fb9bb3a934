/*
 * qv_export.h - the one export macro of the library and the C linkage brackets.
 *
 * The library is built with hidden visibility; only declarations marked QV_API are
 * exported from libqvcommon.so.
 */
#ifndef QV_EXPORT_H
#define QV_EXPORT_H

#if defined(QV_BUILDING_LIBRARY)
#define QV_API __attribute__((visibility("default")))
#else
#define QV_API
#endif

#ifdef __cplusplus
#define QV_EXTERN_C_BEGIN extern "C" {
#define QV_EXTERN_C_END }
#else
#define QV_EXTERN_C_BEGIN
#define QV_EXTERN_C_END
#endif

#endif
