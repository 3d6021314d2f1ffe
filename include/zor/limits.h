/*
 * The limits of the library and of its wire formats, all of them in one place. "[unit] What: what happens beyond."
 * precedes each; the manual's tables are made from that. The size of a text counts its NUL. The platform's
 * limits are in <zor/platform/limits.h>.
 */
#ifndef ZOR_LIMITS_H
#define ZOR_LIMITS_H

/* The message bus. */

/* [text] Name of a daemon, a barrier or a trace module: cut. */
#define ZOR_MSG_NAME_SIZE 12
/* [bytes] Body that travels with its header: a longer one travels in a file in "/var/run/msg/". */
#define ZOR_MSG_INLINE_BODY_MAX 2048u
/* [bytes] Body of a message that is dispatched: dropped; "[msg] error msg datalen = %d \r\n" on standard output. */
#define ZOR_MSG_DISPATCH_BODY_MAX 0x200000u
/* [bytes] Body that a received header may announce: refused before any allocation. */
#define ZOR_MSG_RECV_BODY_MAX 0x8000000u
/* [bytes] Block of memory for a message, its header included, or for a result: ZOR_E_NO_MEMORY or null; a line with
   "malloc 4M" on standard output. */
#define ZOR_ALLOC_MAX 0x800000u
/* [messages] Messages that arrive while a request waits for its reply: the wait ends with ZOR_E_TIMEOUT. */
#define ZOR_MSG_SET_ASIDE_MAX 1000u
/* [ms] Wait until a socket takes a message: ZOR_E_NOT_WRITABLE. */
#define ZOR_MSG_WRITABLE_WAIT_MS 10000
/* [ms] Wait until the socket to another board's server takes a piece of a message: a log line, and tried again. */
#define ZOR_MSG_REMOTE_SEND_WAIT_MS 1000
/* [ms] Silence of another board whose server was to be joined again: the connection has ended. */
#define ZOR_MSG_REMOTE_SILENCE_MS 15000u
/* [ms] Wait for the next piece of a message that has begun to arrive: the pieces received are dropped. */
#define ZOR_MSG_NEXT_PIECE_WAIT_MS 1000
/* [ms] Wait for the reply to ZOR_MSG_GetNumOfProcesses and ZOR_MSG_SafeExitProcesses: ZOR_E_TIMEOUT; no process. */
#define ZOR_MSG_PROCESSES_WAIT_MS 5000u
/* [ms] Pause before a lost connection is first tried again, unless set otherwise: each further pause doubles. */
#define ZOR_MSG_REJOIN_FIRST_PAUSE_MS 100u
/* [ms] Longest pause between two attempts, unless set otherwise: the doubling ends. */
#define ZOR_MSG_REJOIN_LONGEST_PAUSE_MS 5000u
/* [ms] Wait for the server's reply to an attempt, unless set otherwise: the attempt has failed. */
#define ZOR_MSG_REJOIN_REPLY_WAIT_MS 5000u
/* [text] Prefix or name of a restful request: cut. */
#define ZOR_MSG_RESTFUL_NAME_SIZE 64
/* [text] "PREFIX/NAME" that is announced for a procedure: cut. */
#define ZOR_MSG_RESTFUL_PATTERN_SIZE 128
/* [text] All of them for one prefix: what does not fit is left out. */
#define ZOR_MSG_RESTFUL_PATTERNS_SIZE 4096

/* Slow handlers. */

/* [us] Time of a callback, unless set otherwise: it is slow. */
#define ZOR_UV_LAG_THRESHOLD_US 100000u
/* [callbacks] Callbacks that are measured one by one: those with the longest calls stay. */
#define ZOR_UV_LAG_CALLBACKS 32
/* [text] Name of such a callback: cut. */
#define ZOR_UV_LAG_NAME_SIZE 64

/* Trace. */

/* [text] Head of a line: cut. */
#define ZOR_TRACE_LINE_HEAD_SIZE 512
/* [text] Output that the message server sets for a daemon: a longer one is a mistake in its settings. */
#define ZOR_TRACE_OUTPUT_TEXT_SIZE 32
/* [text] Text for ZOR_TRACE_SetOutputByString: cut. */
#define ZOR_TRACE_OUTPUT_SIZE 64
/* [KiB] Trace file, unless a greater size is set: emptied. */
#define ZOR_TRACE_FILE_KIB 1024u

/* Notifications. */

/* [bytes] Data of a notification, its header included when the library sends it: ZOR_NOTIFY_E_NO_MEMORY; a line with
   "malloc 4M" on standard output. */
#define ZOR_NOTIFY_DATA_MAX 0x800000u
/* [] Greatest module ID: ZOR_NOTIFY_E_MID. */
#define ZOR_NOTIFY_MID_LAST 102u
/* [ms] Wait for each message while a request waits for its reply: ZOR_NOTIFY_E_TIMEOUT. */
#define ZOR_NOTIFY_ANSWER_WAIT_MS 240000u
/* [ms] Wait until the socket takes a notification: ZOR_NOTIFY_E_NOT_WRITABLE. */
#define ZOR_NOTIFY_WRITABLE_WAIT_MS 10000
/* [sends] Such failures in a row: each further send first restarts the device, until one succeeds. */
#define ZOR_NOTIFY_FAILURES_MAX 10u

/* The logging daemon's lines. */

/* [text] Log line: cut, without its line end. */
#define ZOR_MLOG_DATA_MAX 1016
/* [text] Name or value of a statistic: cut. */
#define ZOR_MLOG_STAT_TEXT_SIZE 256
/* [s] Wait for the value of a statistic, and for the reply to the power-off notice: treated as success. */
#define ZOR_MLOG_ANSWER_WAIT_SECONDS 2
/* [bytes] Circular file: writing resumes at its start. */
#define ZOR_MLOG_FILE_MAX 0x200000l

/* The log that users see. */

/* [bytes] Parameters of a record, each with its NUL and padded to 4: left out from the first that does not fit; a line
   on standard output. */
#define ZOR_LOG_PARAMETERS_SIZE 256u
/* [text] Path of a query's file: cut. */
#define ZOR_LOG_QUERY_TEXT_SIZE 64u
/* [text] Address of a remote server: cut. */
#define ZOR_LOG_SERVER_TEXT_SIZE 132u
/* [text] Name of this system there: cut. */
#define ZOR_LOG_SERVER_NAME_SIZE 32u
/* [ms] Wait until records are stored: ZOR_E_TIMEOUT. */
#define ZOR_LOG_STORE_WAIT_MS 5000u
/* [ms] Wait for the result of a query: ZOR_E_TIMEOUT. */
#define ZOR_LOG_QUERY_WAIT_MS 10000u

/* Requests to the configuration daemon. */

/* [text] Path: cut. */
#define ZOR_CFG_PATH_SIZE 256
/* [ms] Wait for an export, import, check or cleaning: ZOR_E_TIMEOUT. */
#define ZOR_CFG_FILE_WAIT_MS 15000u
/* [ms] Wait until the configuration is saved: ZOR_E_TIMEOUT. */
#define ZOR_CFG_SAVE_WAIT_MS 5000u
/* [ms] Wait until application data is saved: ZOR_E_TIMEOUT. */
#define ZOR_CFG_APP_SAVE_WAIT_MS 1000u
/* [ms] Wait for the end of all dynamic applications: ZOR_E_TIMEOUT. */
#define ZOR_CFG_KILL_ALL_WAIT_MS 20000u
/* [ms] Wait for the end of one, unless g_ulSafeExitMsgTimeout is set: a line on standard output. */
#define ZOR_CFG_SAFE_EXIT_WAIT_MS 5000u
/* [text] Target of a script for the web daemon: cut. */
#define ZOR_LUA_TARGET_SIZE 256u

/* Other requests. */

/* [ms] Wait for login control: sent once more, then ZOR_E_TIMEOUT. */
#define ZOR_LCTRL_WAIT_MS 4000u
/* [ms] Wait for a change of the KIVA list: ZOR_E_TIMEOUT. */
#define ZOR_KIVA_WAIT_MS 10000u
/* [text] MAC or detail of a record: ZOR_KIVA_E_ARGUMENT; a line on standard output. */
#define ZOR_KIVA_TEXT_SIZE 516u
/* [text] Path of a record: cut. */
#define ZOR_KIVA_XML_PATH_SIZE 68u

/* Commands and processes. */

/* [ms] Run of a command with ZOR_EXEC_LIMITED: killed, with a line on standard output. */
#define ZOR_EXEC_LIMIT_MS 40000
/* [s] Run of ZOR_UTIL_ExecCmd_ByTime, unless another is asked for: sent SIGTERM, with a line on standard output. */
#define ZOR_EXEC_DEFAULT_SECONDS 20u
/* [text] Command line that runs under the account of its program: cut. */
#define ZOR_EXEC_ACCOUNT_COMMAND_SIZE 512
/* [characters] Command line in which a process is looked for: the rest is not looked at. */
#define ZOR_PROCESS_COMMAND_LINE_MAX 237
/* [characters] Name for ZOR_UTIL_GetPid: 0. */
#define ZOR_PROCESS_NAME_MAX 239

/* Codecs and texts. */

/* [text] Domain name that is read: ZOR_DNS_E_MALFORMED. */
#define ZOR_DNS_NAME_SIZE 256
/* [segments] Segments of a compressed domain name: ZOR_DNS_E_MALFORMED. */
#define ZOR_DNS_SEGMENTS_MAX 10
/* [characters] Domain name of a request that is built: cut. */
#define ZOR_DNS_REQUEST_NAME_MAX 259
/* [text] Name of a character set: cut. */
#define ZOR_NLS_SET_NAME_SIZE 32
/* [text] Text whose addresses are masked: cut. */
#define ZOR_BLUR_TEXT_SIZE 260
/* [text] SSID that is masked: cut. */
#define ZOR_BLUR_SSID_SIZE 36
/* [bytes] Piece in which a file is masked: an address split between two stays. */
#define ZOR_BLUR_PIECE_SIZE 2048
/* [characters] Path of such a file: ZOR_BLUR_E_PATH_LONG. */
#define ZOR_BLUR_PATH_MAX 4096

#endif
