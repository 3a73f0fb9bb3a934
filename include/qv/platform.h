/*
 * platform.h - the small platform services beneath messages and feedback: preferences,
 * the installation root and executable directory, files read by UTF-8 path, and the local
 * time text of log prefixes.
 *
 * Preferences: GetPreference_L looks in the process environment first, then in the
 * configuration file qv.ini. The file is found at the path in the environment variable
 * QV_INI when set, else at <install root>/quillon/qv.ini, else at <executable
 * directory>/qv.ini (the first that exists). It holds lines "NAME = value": blanks around
 * name and value are dropped, a value in double quotes loses them, lines starting with
 * '#' or ';' are comments, "[section]" lines and lines without '=' are ignored, names are
 * compared without case and the first match wins. The file is read on every look-up.
 *
 * Texts returned as char * are heap texts the caller frees with free(). Null arguments give
 * null results. Not thread-safe: one thread at a time.
 */
#ifndef QV_PLATFORM_H
#define QV_PLATFORM_H

#include <stdint.h>
#include <stdio.h>

#include "qv_export.h"

QV_EXTERN_C_BEGIN

/* The preference `name`: the environment, then qv.ini. Heap copy, or null when unset. */
QV_API char *GetPreference_L(const char *name);
/* The preference `name` from qv.ini only (the environment is not consulted). */
QV_API char *GetExternalPreference_L(const char *name);
/* Path of the qv.ini file preferences are read from, or null when there is none. */
QV_API char *GetPreferenceFilePath_L(void);

/* The installation root: the preference QV_INSTALL_ROOT, else <prefix>/share where the
 * library lives in <prefix>/lib (or a folder below it), else the data directory the build
 * was configured with. Heap text without a trailing '/'. */
QV_API char *GetInstallRoot_L(void);
/* Directory of the running executable (/proc/self/exe cut at its last '/'), or null when it
 * cannot be read. Heap text without a trailing '/'. */
QV_API char *GetExecutableDirectory_L(void);

/* fopen of a UTF-8 path; '\' is accepted as a path separator and read as '/'. Null path or
 * mode: null with errno EINVAL. */
QV_API FILE *fopen8_L(const char *utf8_path, const char *mode);
/* Reads the next line of `stream` up to, not including, its line feed (a "\r" before the
 * line feed is kept) into *buffer, a heap text grown as needed and freed by the caller
 * (*buffer may start null). Returns *buffer, or null at end of file with nothing read (or
 * for null arguments, or after ALLOC_FAILURE). A last line without a line feed is returned
 * as a line. */
QV_API char *GetLFTerminatedLine_L(char **buffer, FILE *stream);

/* The current local time as "YYYY-MM-DD HH:MM:SS", in a static buffer each call
 * overwrites. */
QV_API const char *Time_L(void);

QV_EXTERN_C_END

#endif
