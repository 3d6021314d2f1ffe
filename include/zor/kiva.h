/*
 * Two lists of attached devices, each in an XDR file, and what is known of their latest upgrades.
 *
 * The crash list, "/var/crash_devinfo.xdr", holds the state of each device's crash diagnostics. Any process may change
 * it. The KIVA list, "/var/kiva/kiva_devinfo.xdr", holds the progress of each device's upgrade over the air. Only the
 * daemon "cms" changes it; all others read it and send that daemon requests. docs/protocol.md has both formats.
 *
 * Conventions of this header:
 * 1. A status is 0, one of the codes below, or what reading a file gave (ZOR_UTIL_ReadFileToBuf). A file that is cut
 *    short or otherwise damaged is no failure: its whole records are read, the others are dropped.
 * 2. Records own their strings, lists their nodes: malloc blocks, which the functions named ...Destroy... release and
 *    set to null. Arguments stay the caller's; what goes into a list is copied.
 * 3. MACs are compared without regard to case. In the KIVA list they have 12 digits and no separator.
 * 4. A change reads the whole file, changes the list and replaces the file. A replacement that fails leaves the old
 *    file; readers see the old or the new one, never a part. Two processes that change the crash list at the same time
 *    may lose one of the changes.
 * 5. What sends or asks belongs to the loop's thread and returns the statuses of ZOR_MSG_Send or ZOR_MSG_SendAndRecv
 *    too. Asking waits up to 10 s.
 */
#ifndef ZOR_KIVA_H
#define ZOR_KIVA_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/kiva_wire.h>
#include <zor/msg_wire.h>

ZOR_BEGIN_DECLS

#define ZOR_CRASH_E_FILE UINT32_C(0x2661001)      /* the crash list cannot be written */
#define ZOR_CRASH_E_ARGUMENT UINT32_C(0x2661002)  /* null */
#define ZOR_CRASH_E_NO_MEMORY UINT32_C(0x2661003) /* no memory for the records; nothing was written */

#define ZOR_KIVA_E_NO_MESSAGE UINT32_C(0x26E0000) /* no memory for a request, or it is too large */
#define ZOR_KIVA_E_FILE UINT32_C(0x26E0001)       /* the KIVA list cannot be written */
#define ZOR_KIVA_E_ARGUMENT UINT32_C(0x26E0002)   /* null, or a text that is too long */
#define ZOR_KIVA_E_UNKNOWN UINT32_C(0x26E0003)    /* no record of that MAC */
#define ZOR_KIVA_E_REFUSED UINT32_C(0x26E0004)    /* no reply, or one with a result other than 0 */

/* Files. Used with ZOR_Crash_GetStatusInfoList, ZOR_UPG_GetKivaInfoList, ZOR_UPG_AddDevKivaInfo and
   ZOR_UPG_SaveUpdateInfo. */
#define ZOR_PATH_CRASH_LIST "/var/crash_devinfo.xdr"
#define ZOR_PATH_KIVA_LIST "/var/kiva/kiva_devinfo.xdr"
#define ZOR_PATH_KIVA_XML_FORMAT "/var/kiva/kiva_%s.xml"
#define ZOR_PATH_KIVA_UPDATE_FORMAT "/var/current_kiva_%s.xml"

/* The crash list. */

typedef struct dev_crash_info {
  char *DevMac;
  char *BetaDownloadURL;
  char *WebDownloadURL;
  char *WebSession;
  char *DiagnosticsState;
  uint32_t ResultState;
} dev_crash_info;

typedef struct dev_crashinfo_list {
  struct dev_crashinfo_list *next;
  dev_crash_info info;
} dev_crashinfo_list;

/* Reads the list, which the caller releases; *list is null when there are no records and on failure.
   ZOR_CRASH_E_ARGUMENT. */
ZOR_API uint32_t ZOR_Crash_GetStatusInfoList(dev_crashinfo_list **list);

/* Replaces the record of the same DevMac, or appends one; null strings are stored as "". A list that cannot be read
   (ZOR_UTIL_ReadFileToBuf) counts as empty. Returns ZOR_CRASH_E_ARGUMENT; ZOR_CRASH_E_NO_MEMORY; ZOR_CRASH_E_FILE; else
   the status of the read: the first record, stored in a new file, reports that there was none. */
ZOR_API uint32_t ZOR_Crash_UpdateAndAddDevInfoToXdr(const dev_crash_info *record);

/* Removes the first record of that DevMac; a missing record is not a failure. ZOR_CRASH_E_ARGUMENT; the status of the
   read, after whose failure nothing is written; ZOR_CRASH_E_FILE. */
ZOR_API uint32_t ZOR_Crash_RemoveNodeByMac(const char *mac);

/* Prints the records on standard output, a line for each field, between lines of 51 '-'; "pstDevInfoList is null" for
   null. */
ZOR_API void ZOR_Crash_PrintStatusList(const dev_crashinfo_list *list);

/* Frees the strings of a record, not the record; frees all nodes of a list. Null is ignored. */
ZOR_API void ZOR_Crash_DestroyDevInfo(dev_crash_info *record);
ZOR_API void ZOR_Crash_DestroyDevInfoList(dev_crashinfo_list *list);

/* The KIVA list: records. */

typedef struct dev_kiva_info {
  kiva_info_status status;
  char *mac;
  char *detail;  /* free text */
  char *xmlPath; /* the file that describes the upgrade */
} dev_kiva_info;

typedef struct dev_kivainfo_list {
  struct dev_kivainfo_list *next;
  dev_kiva_info info;
} dev_kivainfo_list;

/* Frees the strings of a record, not the record; frees all nodes of a list and sets *list to null. Null is ignored. */
ZOR_API void ZOR_UPG_DestroyKivaInfo(dev_kiva_info *info);
ZOR_API void ZOR_UPG_DestroyKivaInfoList(dev_kivainfo_list **list);

/* The KIVA list: reading. A file that cannot be read is tried again once, after 1 ms. */

/* Reads the list behind a head node of the caller's, whose record stays empty. The head is cleared first, whatever it
   held; release the records with ZOR_UPG_DestroyKivaInfoList(&head->next). Prints "Alloc kiva info list error." for
   each record that is dropped. ZOR_KIVA_E_ARGUMENT. */
ZOR_API uint32_t ZOR_UPG_GetKivaInfoList(dev_kivainfo_list *head);

/* The record of a MAC (null: the gateway's own), to be released with ZOR_UPG_DestroyKivaInfo and free; null when there
   is none or the list cannot be read. */
ZOR_API dev_kiva_info *ZOR_UPG_GetKivaInfoByMac(const char *mac);

/* How many records there are; 0 when the list cannot be read. */
ZOR_API uint32_t ZOR_UPG_GetKivaInfoListCount(void);

/* Whether the device of that MAC (null: the gateway) needs an update: 1 or 0, 0 also when it is unknown. */
ZOR_API uint32_t ZOR_UPG_IsDevNeedUpdate(const char *mac);

/* A copy of the MAC, or for null the gateway's own as 12 upper-case digits, which the caller frees. Null when there is
   none or no memory. */
ZOR_API char *ZOR_UPG_GetDevMac(const char *mac);

/* Copies a MAC of exactly 12 characters with six of them masked, for logs: "**11**AA**CC". out is untouched when mac
   has another length, is null, or size (bytes) is below 13. */
ZOR_API void ZOR_KIVA_DisguiseMacAddress(const char *mac, char *out, uint32_t size);

/* The KIVA list: changes, for the daemon "cms". The file belongs to the account "update", where there is one, with mode
   600. All return ZOR_KIVA_E_FILE when it cannot be written. Its directory must exist. */

/* Puts a record at the front, or overwrites the one of its MAC. A file that may not be read counts as an empty list.
   ZOR_KIVA_E_ARGUMENT for null, also in the record; a failure to read, after which nothing is written. */
ZOR_API uint32_t ZOR_UPG_AddDevKivaInfoToXDR(const dev_kiva_info *info);

/* Sets ZOR_KIVA_NEEDS_UPDATE for each known MAC in a text of MACs, 12 characters each with one separator between.
   ZOR_KIVA_E_ARGUMENT; a failure to read, after which nothing is written. */
ZOR_API uint32_t ZOR_UPG_SetUpdateFlag(const char *macs);

/* Prunes the list: a record whose state is not ZOR_KIVA_STATE_KEPT is removed, but the one after a removed record is
   not examined, nor is the last. A failure to read, after which nothing is written. */
ZOR_API uint32_t ZOR_UPG_RemoveDevKivaInfoFromXDR(void);

/* Apply a received ZOR_MSG_KIVA_ADD or ..._REMOVE, or their synchronous twins; the message stays the caller's, who
   replies to the latter with the result as data word (they are not handlers themselves). ZOR_KIVA_E_ARGUMENT also for a
   body that lacks a part; else as above. A missing record is not a failure. */
ZOR_API uint32_t ZOR_UPG_DevKivaAddProc(ZOR_MSG_HEAD *message);
ZOR_API uint32_t ZOR_UPG_DevKivaInfoRemoveProc(ZOR_MSG_HEAD *message);

/* The KIVA list: requests to "cms". ...Sync asks, its twin sends and does not wait. */

/*
 * Asks to add or overwrite a record. A null detail travels as "", a null xmlPath as "/var/kiva/kiva_MAC.xml"; xmlPath
 * is cut to 67 characters. Before anything is sent: ZOR_KIVA_E_ARGUMENT for null, and with the line
 * "KIVAXDR: Para too long \r" for a mac or detail of 516 characters and more; ZOR_KIVA_E_NO_MESSAGE. Asking also gives
 * ZOR_KIVA_E_REFUSED.
 */
ZOR_API uint32_t ZOR_UPG_AddDevKivaInfo(const dev_kiva_info *info);
ZOR_API uint32_t ZOR_UPG_AddDevKivaInfoSync(const dev_kiva_info *info);

/* Asks to remove the record of a MAC, which is cut to 17 characters after its ':' are removed. ZOR_KIVA_E_ARGUMENT for
   null; ZOR_KIVA_E_NO_MESSAGE; asking also gives ZOR_KIVA_E_REFUSED. */
ZOR_API uint32_t ZOR_UPG_RemoveDevKivaInfo(const char *mac);
ZOR_API uint32_t ZOR_UPG_RemoveDevKivaInfoSync(const char *mac);

/* Requests that begin with the stored record of a MAC (null: the gateway's own) and send it back changed. They write no
   file. The status of the read; ZOR_KIVA_E_UNKNOWN; else as ZOR_UPG_AddDevKivaInfo. */

/* Asks to change a record: detail and xmlPath unless they are null, dlSize, param1 and param3 unless they are 0, and
   state always; flags stay. ZOR_KIVA_E_ARGUMENT for null. */
ZOR_API uint32_t ZOR_UPG_UpdateKivaInfo(const dev_kiva_info *info);
ZOR_API uint32_t ZOR_UPG_UpdateKivaInfoSync(const dev_kiva_info *info);

/* Asks to change the state of a record. */
ZOR_API uint32_t ZOR_UPG_UpdateKivaStateEx(const char *mac, uint32_t state);
ZOR_API uint32_t ZOR_UPG_UpdateKivaStateExSync(const char *mac, uint32_t state);

/* Asks to change dlSize of a record. In a state other than ZOR_KIVA_STATE_LOADING sends nothing and returns 0. */
ZOR_API uint32_t ZOR_UPG_UpdateKivaDlSize(const char *mac, uint32_t size);

/* Upgrade information. */

/* A report, in a file or as a getter returns it: a new block, which the caller frees. */
typedef struct ZOR_KIVA_UPDATE_INFO {
  uint32_t value;  /* the caller's; of the gateway's own upgrade its time, seconds since 1970 */
  char text[5120]; /* always terminated; a file holds no more than the text and its NUL */
} ZOR_KIVA_UPDATE_INFO;

/* Stores the latest report of a device in "/var/current_kiva_MAC.xml", the MAC without ':', in upper case and cut to 35
   characters. A text of 5119 characters and more counts as none, like null. Returns 0, also when the file cannot be
   written; 1 for a null MAC or without memory. */
ZOR_API uint32_t ZOR_UPG_SaveUpdateInfo(const char *mac, uint32_t value, const char *text);

/* Reads the latest report of a device; null when there is none. */
ZOR_API ZOR_KIVA_UPDATE_INFO *ZOR_UPG_GetUpdateInfo(const char *mac);

/* Deletes the latest report of a device, if there is one. Returns 0; 1 for a null or empty MAC. */
ZOR_API uint32_t ZOR_UPG_ClearUpdateInfo(const char *mac);

/* Stores the present time and the text (null: none) as the gateway's own latest upgrade. Always returns 1. */
ZOR_API uint32_t ZOR_UPG_SetSelfUpdateInfo(const char *text);

/* The gateway's own latest upgrade; value is 0 when no time is stored, which is logged, and text empty when the stored
   one has more than 5120 bytes. Null without memory. */
ZOR_API ZOR_KIVA_UPDATE_INFO *ZOR_UPG_GetSelfUpdateInfo(void);

/* The time of the gateway's own latest upgrade as "YYYY-MM-DD hh:mm:ss", local, in a new block, which the caller frees;
   null when none is stored. */
ZOR_API char *ZOR_UPG_GetSelfUpdateInfoTime(void);

/* Records the gateway's own upgrade: the time, and for success 1 the content of its "/var/kiva/kiva_MAC.xml" as the
   text. Returns 0 when a text was stored; 1 for any other success value, and when the MAC or the file is missing. */
ZOR_API uint32_t ZOR_UPG_RecordTimeAndLog(uint32_t success);

/*
 * XDR filters, for streams of the system's XDR library. They return nonzero for success and walk lists without
 * recursion. What they decode into must be zeroed. A record that cannot be decoded whole is left without its strings,
 * and the filter returns 0. They take a stream to hold at most 8 MiB: no longer string or list is decoded.
 */
struct __rpc_xdr;
ZOR_API int32_t xdr_dev_crash_info(struct __rpc_xdr *xdrs, dev_crash_info *record);
ZOR_API int32_t xdr_dev_crashinfo_list(struct __rpc_xdr *xdrs, dev_crashinfo_list *first);
ZOR_API int32_t xdr_kiva_info_status(struct __rpc_xdr *xdrs, kiva_info_status *status);
ZOR_API int32_t xdr_dev_kiva_info(struct __rpc_xdr *xdrs, dev_kiva_info *record);
ZOR_API int32_t xdr_dev_kivainfo_list(struct __rpc_xdr *xdrs, dev_kivainfo_list *first);

ZOR_END_DECLS

#endif
