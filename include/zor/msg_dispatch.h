/* Dispatch of received messages to registered handlers, message queues and restful requests. */
#ifndef ZOR_MSG_DISPATCH_H
#define ZOR_MSG_DISPATCH_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/msg_head.h>

ZOR_BEGIN_DECLS

typedef void (*ZOR_MSG_HANDLER)(ZOR_MSG_HEAD *msg);
typedef ZOR_MSG_HEAD *(*ZOR_MSG_SYNC_HANDLER)(ZOR_MSG_HEAD *msg);

/* One registered handler; its address is the registration handle. */
typedef struct ZOR_MSG_PROC_ENTRY {
  struct ZOR_MSG_PROC_ENTRY *next;
  uint32_t type;
  uint32_t order;
  ZOR_MSG_HANDLER proc;
  ZOR_MSG_SYNC_HANDLER syncProc;
} ZOR_MSG_PROC_ENTRY;

typedef uint32_t (*ZOR_MSG_RESTFUL_PROC)(void *body, char **replyText);

typedef struct ZOR_MSG_RESTFUL_ENTRY {
  const char *name; /* null ends the table */
  ZOR_MSG_RESTFUL_PROC proc;
} ZOR_MSG_RESTFUL_ENTRY;

ZOR_API void ZOR_MSG_RegisterMsgProc(ZOR_MSG_PROC proc);
ZOR_API void ZOR_MSG_MsgFilterProc(ZOR_MSG_HEAD *msg, uint32_t word);
ZOR_API uint32_t ZOR_MSG_GetAndDispatch(void);
ZOR_API uint32_t ZOR_MSG_RegMsgProcEx(uint32_t type, ZOR_MSG_HANDLER proc, ZOR_MSG_SYNC_HANDLER syncProc,
                                      uint32_t order, ZOR_MSG_PROC_ENTRY **handle);
ZOR_API uint32_t ZOR_MSG_RegMsgProc(uint32_t type, ZOR_MSG_HANDLER proc, uint32_t order, ZOR_MSG_PROC_ENTRY **handle);
ZOR_API uint32_t ZOR_MSG_RegSyncMsgProc(uint32_t type, ZOR_MSG_SYNC_HANDLER syncProc, uint32_t order,
                                        ZOR_MSG_PROC_ENTRY **handle);
ZOR_API void ZOR_MSG_UnRegMsgProc(ZOR_MSG_PROC_ENTRY *handle);
/* Has the shape of a message procedure so that it can be installed as one; the second word is ignored. */
ZOR_API void ZOR_MSG_DefaultMsgProc(ZOR_MSG_HEAD *msg, uint32_t ignored ZOR_DEFAULT(0));
ZOR_API uint32_t ZOR_MSG_QueueAppendEx(ZOR_MSG_QUEUE_NODE **head, ZOR_MSG_HEAD *msg, uintptr_t extra);
ZOR_API uint32_t ZOR_MSG_QueueAppend(ZOR_MSG_QUEUE_NODE **head, ZOR_MSG_HEAD *msg);
ZOR_API void ZOR_MSG_QueueDestroy(ZOR_MSG_QUEUE_NODE **head);
ZOR_API void ZOR_MSG_TraceProc(int fd);
ZOR_API uint32_t ZOR_MSG_RegRestfulProcs(const char *prefix, const ZOR_MSG_RESTFUL_ENTRY *table);
ZOR_API uint32_t ZOR_MSG_RegRestfulProcsEx(const char *prefix, const ZOR_MSG_RESTFUL_ENTRY *table, const void *expand);
ZOR_API uint32_t ZOR_UTIL_MatchPrefixPath(const char *patternList, const char *path);
ZOR_API ZOR_MSG_HEAD *ZOR_MSG_BuildRestfulReqMsg(uint32_t word0, uint32_t word1, const char *prefix, const char *name,
                                                 const char *data, uint32_t dataLength);
ZOR_API uint32_t ZOR_MSG_SendRestfulResponseMsg(const char *destination, uint32_t type, const void *data,
                                                uint32_t dataLength, uint32_t dataWord, uint32_t sequence);

ZOR_END_DECLS

#endif
