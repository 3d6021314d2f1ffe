/*
 * Configuration requests as they travel on the bus, to no named destination: the message server routes them to the
 * daemon that keeps the configuration. A body is empty, a path (at most 255 characters and the NUL), or a record below.
 * Replies carry a result in their data word, 0 for success, and no body.
 */
#ifndef ZOR_CONFIG_WIRE_H
#define ZOR_CONFIG_WIRE_H

#include <stdint.h>
#include <zor/limits.h>

/* One-way: no reply. */
#define ZOR_MSG_DYN_APP_UPDATE UINT32_C(0x5001)  /* data word: new value; body: 12-byte application name */
#define ZOR_MSG_DB_SAVE UINT32_C(0x5009)         /* data word: user */
#define ZOR_MSG_RESTORE_DEFAULT UINT32_C(0x500F) /* body: ZOR_CFG_RESTORE */
#define ZOR_MSG_EXPORT_CFG_USER UINT32_C(0x5035) /* data word: user of the sender's next encrypted export */
#define ZOR_MSG_DB_SAVE_TO_APP UINT32_C(0x503F)  /* data word: user */

/* With a reply. */
#define ZOR_MSG_EXPORT_CFG_FILE UINT32_C(0x5025)     /* body: path; data word: the caller's */
#define ZOR_MSG_EXPORT_ENC_CFG_FILE UINT32_C(0x5026) /* body: path; the file is encrypted */
#define ZOR_MSG_IMPORT_CFG_FILE UINT32_C(0x5027)     /* body: path */
#define ZOR_MSG_CHECK_CFG_FILE UINT32_C(0x5028)      /* body: path */
#define ZOR_MSG_CLEAN_CFG UINT32_C(0x5029)
#define ZOR_MSG_APP_SAVE_SYNC UINT32_C(0x502A)
#define ZOR_MSG_DB_SAVE_SYNC UINT32_C(0x502B)
#define ZOR_MSG_DEL_APPDATA UINT32_C(0x5033)
#define ZOR_MSG_DB_SAVE_TO_APP_SYNC UINT32_C(0x5040)
#define ZOR_MSG_KILL_ALL_DYN_APP UINT32_C(0x504D)

/* Body of ZOR_MSG_RESTORE_DEFAULT, in the sender's byte order. */
typedef struct ZOR_CFG_RESTORE {
  uint32_t mode;
  uint32_t user;
} ZOR_CFG_RESTORE;

/* Modes of the reference configuration daemon. Used with ZOR_CFM_ExtRestoreDft. */
#define ZOR_CFG_RESTORE_FACTORY UINT32_C(0) /* what the device was delivered with */
#define ZOR_CFG_RESTORE_SAVED UINT32_C(1)   /* what the user saved last */

/* Results of the reference configuration daemon for exported files, beside the statuses of the store. Nothing was
   changed. Used with ZOR_CFM_ExtExportEncryptedCfgFile, ZOR_CFM_ExtExportEncCfgFileByUser,
   ZOR_CFM_ExtImportEncryptedCfgFile and ZOR_DBCheckFile. */
#define ZOR_CFG_E_NO_PASSPHRASE UINT32_C(2) /* the daemon has none, so it can neither encrypt nor decrypt */
#define ZOR_CFG_E_NOT_AUTHENTIC UINT32_C(3) /* encrypted with another passphrase, incomplete or changed */
#define ZOR_CFG_E_FORMAT UINT32_C(4)        /* encrypted in a later format, or with parameters out of bounds */
#define ZOR_CFG_E_NOT_ENCRYPTED UINT32_C(5) /* the daemon's settings do not let it import what is not encrypted */
#define ZOR_CFG_E_NO_CRYPTO UINT32_C(6)     /* the library of ciphers is not installed on the device */

#endif
