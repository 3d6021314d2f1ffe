/* The connection to the message server; sending and receiving whole messages. */
#ifndef ZOR_MSG_BUS_H
#define ZOR_MSG_BUS_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/msg_head.h>

ZOR_BEGIN_DECLS

struct sockaddr;

typedef uint32_t (*ZOR_MSG_SEND_HOOK)(ZOR_MSG_HEAD *msg, int *handled, int *fd);

ZOR_API extern ZOR_MSG_SEND_HOOK g_pfMsgSendHook;

ZOR_API uint32_t ZOR_MSG_Init(const char *appName);
ZOR_API uint32_t ZOR_MSG_InitSlaveApp(const char *appName, const char *ipv4Text, uint16_t port);
ZOR_API void ZOR_MSG_Destroy(void);
ZOR_API uint32_t ZOR_MSG_Send(ZOR_MSG_HEAD *msg);
ZOR_API uint32_t ZOR_MSG_SendEx(int fd, ZOR_MSG_HEAD *msg);
ZOR_API uint32_t ZOR_MSG_SendTo(int fd, ZOR_MSG_HEAD *msg, const struct sockaddr *address, uint32_t addressLength);
ZOR_API uint32_t ZOR_MSG_RecvWithEndian(int fd, ZOR_MSG_HEAD **msg, uint32_t timeoutMs, uint32_t convert);
ZOR_API uint32_t ZOR_MSG_Recv(int fd, ZOR_MSG_HEAD **msg, uint32_t timeoutMs);
ZOR_API uint32_t ZOR_MSG_SendRealTimeMsg(void *message);

ZOR_END_DECLS

#endif
