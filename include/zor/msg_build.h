/* Builders, copies, one-call sends, requests about other daemons, and descriptor passing. */
#ifndef ZOR_MSG_BUILD_H
#define ZOR_MSG_BUILD_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/msg_head.h>

ZOR_BEGIN_DECLS

ZOR_API extern uint32_t g_ulSafeExitMsgTimeout;

ZOR_API void ZOR_MSG_SimpleBuilder(ZOR_MSG_HEAD *header, const char *destination, uint32_t type, uint32_t dataWord);
ZOR_API ZOR_MSG_HEAD *ZOR_MSG_MsgResponseBuilder(const ZOR_MSG_HEAD *request, uint32_t dataWord, const void *data,
                                                 uint32_t dataLength);
ZOR_API uint32_t ZOR_MSG_SendSimpleMsg(const char *destination, uint32_t type, uint32_t dataWord);
ZOR_API uint32_t ZOR_MSG_SendSimpleMsgWithSeqNum(const char *destination, uint32_t type, uint32_t dataWord,
                                                 uint32_t sequence);
ZOR_API uint32_t ZOR_MSG_SendMsgDataWithDataSeq(const char *destination, uint32_t type, const void *data,
                                                uint32_t dataLength, uint32_t dataWord, uint32_t sequence);
ZOR_API uint32_t ZOR_MSG_SendMsgDataWithData(const char *destination, uint32_t type, const void *data,
                                             uint32_t dataLength, uint32_t dataWord);
ZOR_API uint32_t ZOR_MSG_SendMsgData(const char *destination, uint32_t type, const void *data, uint32_t dataLength);
ZOR_API ZOR_MSG_HEAD *ZOR_MSG_Dup(const ZOR_MSG_HEAD *msg);
ZOR_API void *ZOR_MSG_GetMsgBlock(uint32_t dataLength);
ZOR_API void *ZOR_MSG_GetMsgBlockEx(void *buffer, uint32_t size);
ZOR_API uint32_t ZOR_MSG_SetMsgProfile(void *body, const char *destination, uint32_t type, uint32_t dataLength);
ZOR_API uint32_t ZOR_MSG_SubscribeEventForOtherApp(uint32_t event, const char *name);
ZOR_API uint32_t ZOR_MSG_UnSubscribeEventForOtherApp(uint32_t event, const char *name);
ZOR_API uint32_t ZOR_MSG_GetNumOfProcesses(const char *name);
ZOR_API uint32_t ZOR_MSG_SafeExitProcesses(const char *name);
ZOR_API uint32_t ZOR_MSG_SendFd(int fd);
ZOR_API uint32_t ZOR_MSG_RecvFd(int *fd, uint32_t timeoutMs);

ZOR_END_DECLS

#endif
