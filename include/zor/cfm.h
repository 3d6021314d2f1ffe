/*
 * Requests to the configuration daemon, to which the message server routes them. <zor/config_wire.h> has the formats.
 *
 * 1. "Asks" waits up to 15 s and returns the result in the reply, or the status of the failure: one of ZOR_MSG_Send or
 *    ZOR_MSG_SendAndRecv, ZOR_E_TIMEOUT without a reply in time. A result may have the value of a status.
 * 2. "Instructs" does not wait and returns the status of ZOR_MSG_Send.
 * 3. Paths are cut to 255 characters. A null path is allowed and travels as no path.
 * 4. All of it belongs to the loop's thread.
 */
#ifndef ZOR_CFM_H
#define ZOR_CFM_H

#include <stdint.h>
#include <zor/config_wire.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* Save. */

/* Instructs the daemon to save the configuration, or configuration and application data together, for the current user.
 */
ZOR_API uint32_t ZOR_DBSaveFunc(void);
ZOR_API uint32_t ZOR_DBSaveToAppFunc(void);

/* Ask for the same, for user 0, whatever the current user is, and wait 5 s, 1 s. */
ZOR_API uint32_t ZOR_DBSaveSyncFunc(void);
ZOR_API uint32_t ZOR_DBSaveToAppSyncFunc(void);

/* Asks the daemon to save the application data; waits 1 s. */
ZOR_API uint32_t ZOR_AppSaveSyncFunc(void);

/* Files. */

/* Asks to write what was saved to a file; the meaning of the data word is the daemon's. */
ZOR_API uint32_t ZOR_CFM_ExportFlashCfgFile(uint32_t dataWord, const char *path);

/* Asks to write the configuration to a file, encrypted. */
ZOR_API uint32_t ZOR_CFM_ExtExportEncryptedCfgFile(const char *path);

/* The same after telling which user's configuration is meant; that this failed is not reported. */
ZOR_API uint32_t ZOR_CFM_ExtExportEncCfgFileByUser(const char *path, uint32_t user);

/* Asks to take the configuration from such a file. Prints "before send ZOR_MSG_IMPORT_CFG_FILE, file=%s.\n" with the
   whole path, unless it is null. */
ZOR_API uint32_t ZOR_CFM_ExtImportEncryptedCfgFile(const char *path);

/* Asks whether a file holds a configuration. */
ZOR_API uint32_t ZOR_DBCheckFile(const char *path);

/* Defaults. */

/* Instructs the daemon to restore defaults for the current user; the meaning of the mode is the daemon's. */
ZOR_API uint32_t ZOR_CFM_ExtRestoreDft(uint32_t mode);

/* Asks the daemon to empty the configuration, to delete the application data. */
ZOR_API uint32_t ZOR_CFM_CleanCFG(void);
ZOR_API uint32_t ZOR_CFM_DelAppdata(void);

/* ZOR_UTIL_Reboot of the platform. */
ZOR_API uint32_t ZOR_CFM_ExtReboot(uint32_t argument);

ZOR_END_DECLS

#endif
