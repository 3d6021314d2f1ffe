/* The notification client: the second, module-ID based channel. */
#ifndef ZOR_NOTIFYCLT_H
#define ZOR_NOTIFYCLT_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/notify_wire.h>

ZOR_BEGIN_DECLS

/* Status codes of this channel; the numbers are the bus's, the meanings are not. */
#define ZOR_NOTIFY_E_CONNECT UINT32_C(0x10000)
#define ZOR_NOTIFY_E_ARGUMENT UINT32_C(0x10001)
#define ZOR_NOTIFY_E_MID UINT32_C(0x10002)
#define ZOR_NOTIFY_E_SERVER_GONE UINT32_C(0x10003)
#define ZOR_NOTIFY_E_TIMEOUT UINT32_C(0x10004)
#define ZOR_NOTIFY_E_NO_MEMORY UINT32_C(0x10005)
#define ZOR_NOTIFY_E_IO UINT32_C(0x10006)
#define ZOR_NOTIFY_E_NOT_WRITABLE UINT32_C(0x10007)

typedef uint32_t (*ZOR_NOTIFY_SYNC_PROC)(void *data, void **answer, uint32_t *answerLength);
typedef uint32_t (*ZOR_NOTIFY_ASYNC_PROC)(void *part1, void *part2);
typedef uint32_t (*ZOR_NOTIFY_DEFAULT_SYNC_PROC)(uint32_t type, void *data, void **answer, uint32_t *answerLength);
typedef uint32_t (*ZOR_NOTIFY_DEFAULT_ASYNC_PROC)(uint32_t type, void *part1, void *part2, void *state);

ZOR_API uint32_t ZOR_NOTIFYCLT_Init(uint32_t mid);
ZOR_API uint32_t ZOR_NOTIFYCLT_InitByName(const char *name);
ZOR_API void ZOR_NOTIFYCLT_Destroy(void);
ZOR_API void ZOR_NOTIFYCLT_SwitchSock(int32_t fd);
ZOR_API uint32_t ZOR_NOTIFYCLT_GetMIDByName(const char *name);
ZOR_API uint32_t ZOR_NOTIFYCLT_GetAllowMIDByName(const char *name);
ZOR_API const char *ZOR_NOTIFYCLT_GetNameByMID(uint32_t mid);
ZOR_API void *ZOR_NOTIFYCLT_RegSyncMsgProc(uint32_t type, ZOR_NOTIFY_SYNC_PROC proc);
ZOR_API void *ZOR_NOTIFYCLT_RegAsyncMsgProc(uint32_t type, ZOR_NOTIFY_ASYNC_PROC proc);
ZOR_API void ZOR_NOTIYCLT_RegMsgProc(ZOR_NOTIFY_DEFAULT_SYNC_PROC syncProc, ZOR_NOTIFY_DEFAULT_ASYNC_PROC asyncProc);
ZOR_API uint32_t ZOR_NOTIFYCLT_SendSynNotify(uint32_t destination, uint32_t type, const void *data, uint32_t length,
                                             void **answer, uint32_t *answerLength);
ZOR_API uint32_t ZOR_NOTIFYCLT_PostAsynNotify(uint32_t destination, uint32_t type, const void *part1, uint32_t length1,
                                              const void *part2, uint32_t length2);
ZOR_API uint32_t ZOR_NOTIFYCLT_PostSimpleAsynNotify(uint32_t destination, uint32_t type, uint32_t value1,
                                                    uint32_t value2);
ZOR_API uint32_t ZOR_NOTIFYCLT_MsgFilterProc(ZOR_NOTIFY_MSG *msg);

ZOR_END_DECLS

#endif
