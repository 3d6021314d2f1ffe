/* Trace: the in-process debug printout, filtered by module and level. */
#ifndef ZOR_TRACE_H
#define ZOR_TRACE_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* Levels are compared as numbers: a line of level L passes a setting S when S is not 0 and L <= S. */
#define ZOR_TRACE_NONE 0u
#define ZOR_TRACE_FATAL 1u
#define ZOR_TRACE_ERROR 2u
#define ZOR_TRACE_WARNING 4u
#define ZOR_TRACE_INFO 8u
#define ZOR_TRACE_DEBUG 16u

ZOR_API uint32_t ZOR_TRACE_GetLevelByString(const char *name);
ZOR_API const char *ZOR_TRACE_GetLevelStr(uint32_t level);
ZOR_API uint32_t ZOR_TRACE_SetPackageLevel(const char *module, uint32_t level);
ZOR_API uint32_t ZOR_TRACE_IsModuleEnabled(const char *module, uint32_t level);
ZOR_API uint32_t ZOR_TRACE_RegModule(const char *module);
ZOR_API void ZOR_TRACE_SetOutput(uint32_t index);
ZOR_API uint32_t ZOR_TRACE_GetOutput(void);
ZOR_API int32_t ZOR_TRACE_GetOutputByString(const char *name);
ZOR_API void ZOR_TRACE_SetOutputByString(const char *text);
ZOR_API void ZOR_TRACE_SetFileMaxSize(uint64_t sizeKiB);
ZOR_API uint64_t ZOR_TRACE_GetFileMaxSize(void);
ZOR_API uint32_t ZOR_TRACE_PrintInfo(const char *file, uint32_t line, uint32_t force, const char *module,
                                     uint32_t level, const char *format, ...) ZOR_PRINTF(6, 7);
ZOR_API uint32_t ZOR_TRACE_PrintInfoEx(const char *module, uint32_t level, const char *format, ...) ZOR_PRINTF(3, 4);
ZOR_API void ZOR_TRACE_Display(void);
ZOR_API int32_t ZOR_Debug_Print(const char *format, ...) ZOR_PRINTF(1, 2);
ZOR_API uint32_t ZOR_Debug_RegModCmds(void);
ZOR_API int32_t ZOR_UTIL_GetCurPid(void);
ZOR_API const char *ZOR_UTIL_GetCurTimeStamp(void);

ZOR_END_DECLS

#endif
