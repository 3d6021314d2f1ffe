/* The logger client: lines, statistics and the power-off notice for the logging daemon, and its circular file. */
#ifndef ZOR_MLOG_H
#define ZOR_MLOG_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <zor/export.h>
#include <zor/mlog_wire.h>

ZOR_BEGIN_DECLS

/* Levels. */
#define ZOR_MLOG_NONE 0u
#define ZOR_MLOG_FATAL 1u
#define ZOR_MLOG_ERROR 2u
#define ZOR_MLOG_WARNING 4u
#define ZOR_MLOG_INFO 8u

typedef struct ZOR_MLOG_FILE {
  FILE *stream;
  long overturn;
  long offset;
  long uploadOffset;
} ZOR_MLOG_FILE;

ZOR_API int32_t mlog_print(const char *tag, uint32_t level, const char *format, ...) ZOR_PRINTF(3, 4);
ZOR_API const char *mlog_get_log_lv_string(uint32_t level);
ZOR_API uint32_t mlog_get_log_lv(const char *name);
ZOR_API int32_t set_mlog_stat_info(const char *name, const char *value);
ZOR_API int32_t get_mlog_stat_info(const char *name, char *value, int32_t size);
ZOR_API int32_t inform_mlogger_power_off(void);
ZOR_API int32_t mlog_use_share_partion(void);
ZOR_API int32_t mlog_socket_open(const char *name, int32_t *fd);
ZOR_API int32_t mlog_socket_close(int32_t fd, const char *name);
ZOR_API int32_t mlog_socket_send(int32_t fd, const void *buffer, uint32_t length, const char *destination);
ZOR_API int32_t mlog_socket_recvfrom(int32_t fd, void *buffer, uint32_t *length, int32_t timeoutSeconds, char *sender,
                                     uint32_t senderSize);
ZOR_API int32_t mlog_send_msg(int32_t fd, const ZOR_MLOG_MSG *msg, const char *destination);
ZOR_API int32_t mlog_recv_msg(int32_t fd, ZOR_MLOG_MSG *msg, int32_t timeoutSeconds, char *sender, uint32_t senderSize);
ZOR_API int32_t mlog_send_recv_msg(int32_t fd, const ZOR_MLOG_MSG *request, ZOR_MLOG_MSG *answer, uint32_t answerSize,
                                   int32_t timeoutSeconds, const char *destination);
ZOR_API int32_t mlog_netlink_open(int32_t *fd);
ZOR_API int32_t stat_netlink_send(int32_t fd, const void *data, uint32_t length);
ZOR_API int32_t stat_netlink_receive(int32_t fd, ZOR_MLOG_STAT *stat);
ZOR_API ZOR_MLOG_FILE *mlog_file_constructor(const char *path);
ZOR_API void mlog_file_destructor(ZOR_MLOG_FILE *file);
ZOR_API int32_t mlog_file_write(ZOR_MLOG_FILE *file, const void *data, uint32_t length);
ZOR_API int32_t mlog_file_open(const char *path);
ZOR_API void mlog_file_close(int32_t fd);
ZOR_API uint32_t ZOR_Netlink_SendToKernel(const void *data, uint32_t length, uint32_t port);

ZOR_END_DECLS

#endif
