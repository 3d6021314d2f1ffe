/*
 * Trace: the in-process debug printout of a daemon, filtered by module and level. Nothing is printed until a level is
 * set, here or by the settings that the message server sends with the reply to the registration.
 *
 * 1. A module is a word that callers choose, of at most 11 characters: longer names are stored cut and then never
 *    found. The word "all" is the setting of every module without one of its own.
 * 2. Levels compare as numbers, not as bits: a line of level L passes a setting S when S is not 0 and L <= S.
 * 3. Text arguments are read during the call only. Returned texts belong to the library.
 * 4. A line goes out in one piece at its end: over UDP as one datagram, in a file with one write, unless it is longer
 *    than the buffer of a stdio stream. A line that cannot be written is lost; the call returns 1 all the same.
 * 5. Settings and output belong to the loop's thread. Other threads may print while no setting changes.
 */
#ifndef ZOR_TRACE_H
#define ZOR_TRACE_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* Levels; "all" is a second name for 16. Used with ZOR_TRACE_GetLevelByString, ZOR_TRACE_GetLevelStr,
   ZOR_TRACE_SetPackageLevel, ZOR_TRACE_IsModuleEnabled, ZOR_TRACE_PrintInfo and ZOR_TRACE_PrintInfoEx. */
#define ZOR_TRACE_NONE 0u
#define ZOR_TRACE_FATAL 1u
#define ZOR_TRACE_ERROR 2u
#define ZOR_TRACE_WARNING 4u
#define ZOR_TRACE_INFO 8u
#define ZOR_TRACE_DEBUG 16u

/* The level of that name; 0 for an unknown name or null. */
ZOR_API uint32_t ZOR_TRACE_GetLevelByString(const char *name);

/* The name of a level ("debug" for 16); "none" for a number that has none. */
ZOR_API const char *ZOR_TRACE_GetLevelStr(uint32_t level);

/* Sets the level of a module; null means "all". Level 0 removes the module's setting, so that "all" holds for it again:
   one module cannot be silenced while "all" is set. Setting "all", to 0 too, first removes every other setting.
   Returns 0; ZOR_E_NO_MEMORY when the setting could not be stored. */
ZOR_API uint32_t ZOR_TRACE_SetPackageLevel(const char *module, uint32_t level);

/* Tests whether a line of this module (null means "all") and level is printed. Returns 1 if so, else 0. */
ZOR_API uint32_t ZOR_TRACE_IsModuleEnabled(const char *module, uint32_t level);

/* Adds a module to the directory of known modules, which does not affect filtering. Returns 0, also for a
   name that is known; ZOR_E_NO_MEMORY for null or when memory runs out. */
ZOR_API uint32_t ZOR_TRACE_RegModule(const char *module);

/* Closes the current output and takes another: 0 standard output, else the end of the file "/online/log/webapp.log".
   A missing directory "/online/log" is made; when that fails "mkdir for %s faield \r\n" is printed on standard output.
   Lines go to standard output when the file cannot be opened. */
ZOR_API void ZOR_TRACE_SetOutput(uint32_t index);

/* The current output. Returns 0 for standard output, 1 for the file or a socket. When the file could not be opened,
   standard output is used. */
ZOR_API uint32_t ZOR_TRACE_GetOutput(void);

/* The index of "stdout" or "file"; -1 for any other text or null. */
ZOR_API int32_t ZOR_TRACE_GetOutputByString(const char *name);

/* Takes another output: "stdout", "file", or a UDP receiver such as "10.0.0.1:5000". At most 63 characters are read.
   The output stays as it is for any other text, a port outside 1 to 65535, or when the socket cannot be created. */
ZOR_API void ZOR_TRACE_SetOutputByString(const char *text);

/* Sets the size, in KiB, at which the trace file is emptied. 1024, the value at start, or less is ignored. The file is
   looked at after each line that did not go to standard output. */
ZOR_API void ZOR_TRACE_SetFileMaxSize(uint64_t sizeKiB);

/* The size, in KiB, at which the trace file is emptied. */
ZOR_API uint64_t ZOR_TRACE_GetFileMaxSize(void);

/* Prints one line: "\r\n[(LEVEL)TIME APP:PID:MODULE FILE:LINE]: ", at most 511 characters, and the formatted message,
   which needs no newline of its own. A nonzero force prints whatever the settings are. file is the base name of the
   source file; null file and module print as "". When the line cannot be written whole, "ZOR_TRACE_PrintInfo
   write file failed. " and a newline go to standard output, except for datagrams. Returns 1; 0 when filtered out, for a
   null format, or when the head cannot be formatted. */
ZOR_API uint32_t ZOR_TRACE_PrintInfo(const char *file, uint32_t line, uint32_t force, const char *module,
                                     uint32_t level, const char *format, ...) ZOR_PRINTF(6, 7);

/* Prints the formatted message without a head. Returns 1; 0 when filtered out or for a null format. */
ZOR_API uint32_t ZOR_TRACE_PrintInfoEx(const char *module, uint32_t level, const char *format, ...) ZOR_PRINTF(3, 4);

/* Prints the settings and the output on standard output. */
ZOR_API void ZOR_TRACE_Display(void);

/* As printf; -1 for a null format. */
ZOR_API int32_t ZOR_Debug_Print(const char *format, ...) ZOR_PRINTF(1, 2);

/* Does nothing. Returns 0. */
ZOR_API uint32_t ZOR_Debug_RegModCmds(void);

/* The process id as this thread first read it: a forked child keeps its parent's. Any thread. */
ZOR_API int32_t ZOR_UTIL_GetCurPid(void);

/* Wall-clock and monotonic time, each as "SECONDS.MICROSECONDS", with a blank between, in one static buffer. The text
   stays as it was when the wall clock cannot be read. */
ZOR_API const char *ZOR_UTIL_GetCurTimeStamp(void);

ZOR_END_DECLS

#endif
