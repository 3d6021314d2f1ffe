/*
 * Records of the user-visible system log, which the daemon "syslog" keeps.
 *
 * A caller sends no text; it names a log item by its index and gives the item's parameters. The text comes from the
 * item's format string, in the reader's language, when the log is shown; $0, $1, ... in it stand for the parameters.
 *
 * 1. A type and a level are single bits. A type-level code holds the level in its low 8 bits and the type above them.
 * 2. language is ZOR_LOG_SECOND_LANGUAGE, or anything else for English. Texts are UTF-8. Strings and rows that are
 *    returned are constants.
 * 3. Functions that speak to the daemon return ZOR_LOG_FAILURE where their comment says so, and always when there is no
 *    memory for the request; else a status of the bus: of ZOR_MSG_Send, or of ZOR_MSG_SendAndRecv for those that wait.
 *    They belong to the loop's thread; the others may be called anywhere.
 * 4. Arguments are checked before anything is sent. The formats are in <zor/log_wire.h>.
 */
#ifndef ZOR_LOG_H
#define ZOR_LOG_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/log_wire.h>

ZOR_BEGIN_DECLS

/* Returned for an argument that cannot be sent. */
#define ZOR_LOG_FAILURE UINT32_C(1)

/* A language; any other value is English. Used with ZOR_UTIL_LogItemGetFmtStr, ZOR_UTIL_LOG_GetTypeString,
   ZOR_UTIL_LOG_GetLevelString and ZOR_LOG_API_Query_Items. */
#define ZOR_LOG_SECOND_LANGUAGE UINT32_C(1)

/* One row of the item table. */
typedef struct ZOR_LOG_ITEM {
  uint32_t index; /* bits 24-31 the owning module, 16-23 flags (ZOR_LOG_SYNC_FLAG), 0-15 the item's number */
  uint32_t typeLevel;
  uint32_t enabled; /* 1 */
} ZOR_LOG_ITEM;

/* The vocabulary. */

/* The row of an item, the first one of an index that occurs twice; null when there is none. Rows follow each other in
   memory up to a row of zeros. */
ZOR_API const ZOR_LOG_ITEM *ZOR_UTIL_LogItemFindByIdx(uint32_t index);

/* The format string of the item that a row, or a copy of one, names; null for null and for an index without an item. */
ZOR_API const char *ZOR_UTIL_LogItemGetFmtStr(const ZOR_LOG_ITEM *item, uint32_t language);

/* The name of a code's type; null when it has none in that language ("DAD" has no second one). Type 0 is "None". */
ZOR_API const char *ZOR_UTIL_LOG_GetTypeString(uint32_t typeLevel, uint32_t language);

/* The name of a code's level; null unless exactly one level bit is set. */
ZOR_API const char *ZOR_UTIL_LOG_GetLevelString(uint32_t typeLevel, uint32_t language);

/* The level bits that items use. The first min(8, size) entries of names, which may be null, get the English name of
   each level from bit 0 up, or null for a level that no item uses. */
ZOR_API uint32_t ZOR_UTIL_LOG_GetAllLogLevel(const char **names, uint32_t size);

/* The bits of the levels in use that are as severe as the named one (English, case-sensitive) or more. Returns 0;
   ZOR_LOG_FAILURE, with the mask untouched, for a null argument or a level that no item uses. */
ZOR_API uint32_t ZOR_UTIL_LOG_GetHigherLogLevels(const char *levelName, uint32_t *mask);

/* The process that owns an item, by the top 12 bits of its index; "" for others. */
ZOR_API const char *logGetProcName(uint32_t index);

/* Recording. */

/*
 * Records an item with its parameter texts, which end with a null: ZOR_LOG_API_Record_Log(0x05000000, user, address,
 * (char *)0). A plain 0 is not a pointer in a variable argument list. An empty text is a parameter too. Texts that do
 * not fit into 256 bytes, each with its NUL and padded to 4, are left out from the first of them on, which prints
 * "[Warning] ZOR_LOG_API_Record_Log paras are too long, need at least %d bytes...\n". An index with ZOR_LOG_SYNC_FLAG
 * waits up to 5 s until the record is stored. ZOR_LOG_FAILURE for an unknown index.
 */
ZOR_API uint32_t ZOR_LOG_API_Record_Log(uint32_t index, ...) __attribute__((sentinel));

/* Records a line of the kernel log. The low 8 bits of level count. A text of 256 characters or more is cut to 256,
   which prints "[Warning] ZOR_LOG_API_Record_KLog paras are too long, at least %d bytes...\n" with its length. unused
   is ignored. ZOR_LOG_FAILURE for a type or level of 0 or a null text. */
ZOR_API uint32_t ZOR_LOG_API_Record_KLog(uint32_t type, uint32_t level, uint32_t unused, const char *text);

/* Reading and managing. */

/* Asks the daemon to write the records of a type and level, or of several (bits may be combined), to the file that text
   names (63 characters count). What count and selector mean is described in docs/protocol.md. *result
   (result may be null) is the data word of its reply, untouched without one. Waits up to 10 s. ZOR_LOG_FAILURE for a
   null text or a type or level of 0. */
ZOR_API uint32_t ZOR_LOG_API_Query_Items(const char *text, uint32_t count, uint32_t type, uint32_t level,
                                         uint32_t selector, uint32_t *result);

/* The same for the whole log, in the daemon's own language. ZOR_LOG_FAILURE for a null text. */
ZOR_API uint32_t ZOR_LOG_API_System_Query_Items(const char *text, uint32_t count, uint32_t *result);

/* From now on only records whose type and level are among these bits are kept. Does not wait. */
ZOR_API uint32_t ZOR_LOG_API_Set_TypeLevel_Filter(uint32_t type, uint32_t level);

/* Removes the records of a type. Does not wait. ZOR_LOG_FAILURE for type 0. */
ZOR_API uint32_t ZOR_LOG_API_Clear_Log_By_Type(uint32_t type);

/* Sets the remote servers: number1 is the port of server1, port that of server2, name what this system calls itself
   there, number2 a word that is passed on. Texts may be null, and are cut: name to 31 characters, servers to 131. Does
   not wait. */
ZOR_API uint32_t ZOR_LOG_API_Set_RtoServer(const char *name, const char *server1, uint16_t number1, const char *server2,
                                           uint16_t port, uint32_t number2);

/*
 * Asks the daemon to store all records and waits up to 5 s. Then logs, whatever the outcome, "Flash
 * operation ZOR_LOG_API_Flush_Log called by NAME LINE result(STATUS)(WORD) \r\n" at level 4 under the tag "msg", with
 * the data word of the reply or 0. ZOR_LOG_FAILURE, with nothing logged, for a null name.
 */
ZOR_API uint32_t ZOR_LOG_API_Flush_Log(int32_t callerLine, const char *callerName);

/* The same without waiting; the line ends in "result(STATUS)\r\n". */
ZOR_API uint32_t ZOR_LOG_API_Flush_Log_Async(int32_t callerLine, const char *callerName);

ZOR_END_DECLS

#endif
