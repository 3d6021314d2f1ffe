#include "message/context.h"

#include <cstddef>

ZOR_MSG_CTX g_stMsgCtx = {{}, -1, nullptr, 0, nullptr, -1, nullptr, 0, nullptr, 0};

const char *m_aucAppName = "";

// The record as the 32-bit device knows it.
static_assert(sizeof(void *) != 4 || sizeof(ZOR_MSG_CTX) == 48);
static_assert(sizeof(void *) != 4 || offsetof(ZOR_MSG_CTX, socketFd) == 12);
static_assert(sizeof(void *) != 4 || offsetof(ZOR_MSG_CTX, pending) == 32);
static_assert(sizeof(void *) != 4 || offsetof(ZOR_MSG_CTX, sequence) == 44);
