/* Fixed paths: the contract with the rest of the device. ZOR_UTIL_FixedPath says where each one is opened. */
#ifndef ZOR_PATHS_H
#define ZOR_PATHS_H

#define ZOR_PATH_MSGSVR "/var/msgsvr"
#define ZOR_PATH_MSG_FILE_DIR "/var/run/msg/"
#define ZOR_PATH_MSG_FILE_FORMAT "/var/run/msg/msg_file_%u"
#define ZOR_PATH_LAG_FORMAT "/var/run/msg/lag_%u" /* of a process ID; "Handler times" in docs/protocol.md */
#define ZOR_PATH_NOTIFY_DIR "/var/run/notify"
#define ZOR_PATH_NOTIFY_SERVER "/var/run/notify/notifyserver"
#define ZOR_PATH_MLOG_DIR "/var/mlog/"
#define ZOR_PATH_BOOT_TRACK "/var/zor_boot_track.log"
#define ZOR_PATH_TRACE_DIR "/online/log"
#define ZOR_PATH_TRACE_FILE "/online/log/webapp.log"

#endif
