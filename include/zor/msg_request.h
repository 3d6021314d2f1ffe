/* Requests that wait for their reply, asynchronous requests and the cross-process barrier. */
#ifndef ZOR_MSG_REQUEST_H
#define ZOR_MSG_REQUEST_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/msg_head.h>

ZOR_BEGIN_DECLS

typedef void (*ZOR_MSG_REPLY_PROC)(ZOR_MSG_HEAD *reply, uint32_t status, void *replyData);

ZOR_API uint32_t ZOR_MSG_SendAndRecv(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs);
ZOR_API uint32_t ZOR_MSG_SendAndRecvWithAppName(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs);
ZOR_API uint32_t ZOR_MSG_RecvResponse(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs);
ZOR_API uint32_t ZOR_MSG_RecvResponseWithAppName(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs);
ZOR_API uint32_t ZOR_MSG_RecvWithType(uint32_t type, ZOR_MSG_HEAD **reply, uint32_t timeoutMs);
ZOR_API uint32_t ZOR_MSG_AsyncSendAndRecv(ZOR_MSG_HEAD *msg, ZOR_MSG_REPLY_PROC callback, uint32_t timeoutMs,
                                          void *replyData);
ZOR_API uint32_t ZOR_MSG_SendAndRecvMsgData(const char *destination, uint32_t type, uint32_t dataWord,
                                            uint32_t timeoutMs, uint32_t *replyWord);
ZOR_API uint32_t ZOR_MSG_ZorSyncWait(const char *name, uint32_t timeoutMs);
ZOR_API uint32_t ZOR_MSG_ZorSyncPost(const char *name);

ZOR_END_DECLS

#endif
