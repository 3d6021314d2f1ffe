/*
 * The logger client: lines, statistics and the power-off notice for the logging daemon, and its circular file.
 *
 * 1. Every call opens, uses and removes a socket of its own in "/var/mlog/"; nothing is kept between calls. Any thread
 *    may call, as long as no two callers use one socket name at a time: mlog_print's is its tag, the others' contains
 *    the process id. Where two meet on a name, the later one takes it and a line of the earlier one may get lost.
 * 2. Results are 0 for success and -1 for a null argument or a system call that failed, unless a function says more.
 *    Out-parameters keep their value on failure, unless a function says otherwise.
 * 3. Paths of files are opened as given. Names of sockets stand for "/var/mlog/NAME", at most 107 characters in all,
 *    and a destination may be such a path. The name of a socket to open must not contain a slash.
 * 4. The datagrams and their sizes are in <zor/mlog_wire.h>.
 */
#ifndef ZOR_MLOG_H
#define ZOR_MLOG_H

#include <stdint.h>
#include <stdio.h>
#include <zor/export.h>
#include <zor/mlog_wire.h>

ZOR_BEGIN_DECLS

/* Levels. Used with mlog_print, mlog_get_log_lv_string and mlog_get_log_lv. */
#define ZOR_MLOG_NONE 0u
#define ZOR_MLOG_FATAL 1u
#define ZOR_MLOG_ERROR 2u
#define ZOR_MLOG_WARNING 4u
#define ZOR_MLOG_INFO 8u

/* An open circular log file. */
typedef struct ZOR_MLOG_FILE {
  FILE *stream;      /* owned by the record */
  long overturn;     /* how many times the file has wrapped */
  long offset;       /* where the next write goes, from the start of the file */
  long uploadOffset; /* kept in the header for the program that uploads the file */
} ZOR_MLOG_FILE;

/* Lines. */

/*
 * Sends the line "[MILLISECONDS][tag][LEVEL]:text\n" to the logging daemon, with the boot time in milliseconds (11
 * digits) and the name of the level (empty when it has none). The line is cut at 1015 characters and only then lacks
 * its newline. Without a daemon it is lost; a daemon whose queue is full is waited for. Lines of levels 0 and 1 also go
 * to standard output. The tag names the socket, see 1 and 3. Returns 0, or -1 with nothing printed when the tag or the
 * format is null or the socket cannot be opened.
 */
ZOR_API int32_t mlog_print(const char *tag, uint32_t level, const char *format, ...) ZOR_PRINTF(3, 4);

/* "NONE", "FATL", "ERRO", "WARN" or "INFO"; null for any other value. */
ZOR_API const char *mlog_get_log_lv_string(uint32_t level);

/* The first level whose name begins with the text, ignoring case ("w" and "WARN" give 4); 0 when none does. */
ZOR_API uint32_t mlog_get_log_lv(const char *name);

/* Statistics and power. */

/* Asks the daemon to keep a value under a name, both cut to 255 characters. -1 also when there is no daemon. */
ZOR_API int32_t set_mlog_stat_info(const char *name, const char *value);

/* Asks the daemon for the value of a name and copies it, cut to size - 1 characters. Without a reply within 2 seconds
   the result is 0 too and the buffer stays as it was. -1 also for a size below 1 or when there is no daemon. */
ZOR_API int32_t get_mlog_stat_info(const char *name, char *value, int32_t size);

/* Notifies the daemon that power is going off, and waits up to 2 seconds until it has saved its buffers. 0 also
   without a reply; -1 when there is no daemon. */
ZOR_API int32_t inform_mlogger_power_off(void);

/* Tests the setting "[SHARE]" of the file "mlogcfg" in the current directory. Returns 1 when its last line
   "[SHARE]...=NUMBER" has a number other than 0, else 0. */
ZOR_API int32_t mlog_use_share_partion(void);

/* Datagrams. */

/* Binds a datagram socket of the given name, replacing one that is there. */
ZOR_API int32_t mlog_socket_open(const char *name, int32_t *fd);

/* Closes the descriptor (when it is not negative) and removes the file of that name (when it is not null). Always 0. */
ZOR_API int32_t mlog_socket_close(int32_t fd, const char *name);

/* Sends length bytes to a socket; waits, without bound, while the receiver's queue is full. */
ZOR_API int32_t mlog_socket_send(int32_t fd, const void *buffer, uint32_t length, const char *destination);

/*
 * Receives a datagram of at most 1024 bytes, which the buffer must hold. A timeoutSeconds of 0 or less waits for ever.
 * When sender is not null and senderSize not 0, sender gets the sender's path, cut to its size, in a form that
 * mlog_socket_send takes as destination; empty when the sender has none. Returns 0; -2, with length 0, when nothing
 * came in time; -1.
 */
ZOR_API int32_t mlog_socket_recvfrom(int32_t fd, void *buffer, uint32_t *length, int32_t timeoutSeconds, char *sender,
                                     uint32_t senderSize);

/* Sends the 8 + length bytes of a message. -1 also when its length exceeds ZOR_MLOG_DATA_MAX. */
ZOR_API int32_t mlog_send_msg(int32_t fd, const ZOR_MLOG_MSG *msg, const char *destination);

/* Receives a message; the rest of the record is zeroed. -1 also after the time-out (as in mlog_socket_recvfrom) and for
   a datagram whose size is not 8 + its length. */
ZOR_API int32_t mlog_recv_msg(int32_t fd, ZOR_MLOG_MSG *msg, int32_t timeoutSeconds, char *sender, uint32_t senderSize);

/* Sends a request and receives the reply, 0 when both succeed. replySize is ignored: reply is a whole record. */
ZOR_API int32_t mlog_send_recv_msg(int32_t fd, const ZOR_MLOG_MSG *request, ZOR_MLOG_MSG *reply, uint32_t replySize,
                                   int32_t timeoutSeconds, const char *destination);

/* Netlink. */

/* Opens the kernel's statistics channel (protocol 28) with the process id as port; the caller closes the descriptor.
   Prints "\n netlink socket fail :" with the error when the kernel has no such channel. */
ZOR_API int32_t mlog_netlink_open(int32_t *fd);

/* Sends length bytes behind a netlink header (type 3), padded to a multiple of 4. data may be null when length is 0.
   -1 also for more than 8 MiB in all, which prints "error: not host tool, but malloc 4M, return NULL, malloc len=%d\n"
   with the padded size on standard output. Prints "\nsend msg fail :\n" with the error when the system refuses. */
ZOR_API int32_t stat_netlink_send(int32_t fd, const void *data, uint32_t length);

/* Waits for a statistics record. -1 also for a message that is not a whole one; prints "recvmsg error ..." then. */
ZOR_API int32_t stat_netlink_receive(int32_t fd, ZOR_MLOG_STAT *stat);

/*
 * Sends length bytes to the kernel module on protocol 25, from the given port; the message type is the port's low 16
 * bits. Returns 0, also when the send itself fails, which prints "send failed for balance\n" with the error; 1 for null
 * data, port 0, more than 8 MiB in all (with the line of stat_netlink_send), or a socket that cannot be had or bound
 * ("bind error\n").
 */
ZOR_API uint32_t ZOR_Netlink_SendToKernel(const void *data, uint32_t length, uint32_t port);

/* The circular file. */

/*
 * Opens a circular log file and makes it when it is not there. A header that cannot be read or makes no sense starts
 * the file anew; both that and the position found are printed on standard output. Returns null when the file cannot be
 * opened. Release with mlog_file_destructor.
 */
ZOR_API ZOR_MLOG_FILE *mlog_file_constructor(const char *path);

/* Closes the stream and frees the record; null is ignored. */
ZOR_API void mlog_file_destructor(ZOR_MLOG_FILE *file);

/*
 * Writes length bytes at the offset, or at the start of the data when they no longer fit the 2 MiB, and brings the
 * header up to date. A block of more than ZOR_MLOG_FILE_MAX - 64 bytes that does not fit is dropped; the result is 0
 * all the same. Data may stay in the stream's buffer until fflush(file->stream). Prints the position on standard
 * output.
 */
ZOR_API int32_t mlog_file_write(ZOR_MLOG_FILE *file, const void *data, uint32_t length);

/* A non-blocking descriptor for reading the file, to be given to mlog_file_close; -1 when it cannot be opened. */
ZOR_API int32_t mlog_file_open(const char *path);

/* Closes a descriptor that is not negative. */
ZOR_API void mlog_file_close(int32_t fd);

ZOR_END_DECLS

#endif
