/* Linkage and visibility of everything the libraries export. */
#ifndef ZOR_EXPORT_H
#define ZOR_EXPORT_H

#define ZOR_API __attribute__((visibility("default")))

/* Lets the compiler check a printf-like call; positions count from 1. */
#define ZOR_PRINTF(formatAt, firstAt) __attribute__((format(printf, formatAt, firstAt)))

#ifdef __cplusplus
#define ZOR_BEGIN_DECLS extern "C" {
#define ZOR_END_DECLS }
#define ZOR_DEFAULT(value) = value
#else
#define ZOR_BEGIN_DECLS
#define ZOR_END_DECLS
#define ZOR_DEFAULT(value)
#endif

#endif
