// The limits of the servers, all of them in one place. "[unit] What: what happens beyond." precedes each that
// the manual's tables name; the others are bounds of settings, which its pages name. Limits of the library and of the
// wire formats: <zor/limits.h>.
#ifndef PROGRAMS_LIMITS_H
#define PROGRAMS_LIMITS_H

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace zor::limits {

// All servers.

// [bytes] Settings file: the server does not start.
inline constexpr std::uint32_t kSettingsFile = 1u << 20;
// [lines] Lines on standard error in a burst, then one per second: left out and counted.
inline constexpr int kProblemBurst = 20;
// [lines] Lines about one client in a burst, then one in 5 s: the same.
inline constexpr int kClientProblemBurst = 10;
// [lines] Lines about the clients of one user in a burst, then one per second: the same.
inline constexpr int kUserProblemBurst = 40;
// [descriptors] Descriptors that one client leaves unread: a further one is dropped.
inline constexpr std::size_t kUnreadDescriptors = 16;  // scarcer than memory
// [s] Trial run of the program that is to take over from a running server: the server is not replaced.
inline constexpr std::chrono::seconds kTrialTime{10};

namespace keeper {

// The keeper of a server (--keeper).

// [descriptors] Descriptors stored for the server: a further one is lost when the server crashes; a log line.
inline constexpr std::size_t kDescriptors = 8192;
// [s] Time from the server's start until it is ready: it is killed and started again.
inline constexpr std::chrono::seconds kStartTime{90};
// [s] Time without a sign of life from the server's loop, unless the keeper's own manager sets another: it is killed
// and started again.
inline constexpr std::chrono::seconds kWatchdog{30};
// [s] Time in which a server that is stopped ends: it is killed.
inline constexpr std::chrono::seconds kStopTime{90};
// [s] Time in which a server that hangs writes its core after SIGABRT: SIGKILL.
inline constexpr std::chrono::seconds kAbortTime{10};
// [s] Time for which a server serves before its end counts as a failing start: the next start is delayed.
inline constexpr std::chrono::seconds kSteadyTime{1};
inline constexpr std::chrono::milliseconds kFirstPause{100};
// [s] Pause before the next start, which begins with a tenth of a second and is doubled by each failing start: stays at
// that.
inline constexpr std::chrono::seconds kMostPause{30};

}  // namespace keeper

namespace access {

// The rules of who may do what.

// [rules] Rules of all files: an invalid set of rules.
inline constexpr std::size_t kRules = 4096;
// [bytes] Line of a rules file: an invalid set of rules.
inline constexpr std::size_t kLine = 4096;
// [actions] Different refusals that are kept for operators: further ones are only counted.
inline constexpr std::size_t kRefusals = 1024;
// [bytes] Who asked for what, as the text of a refusal: only counted.
inline constexpr std::size_t kRefusalText = 1024;
inline constexpr std::size_t kDecisions = 2048;  // that are kept, a power of two

}  // namespace access

namespace msgsvr {

// The message server.

// [bytes] Output that one client leaves unread (setting queue_bytes): further messages to it are refused.
inline constexpr std::size_t kQueueBytes = 1048576;
inline constexpr std::size_t kLeastQueueBytes = 16384;  // holds some of the longest messages
inline constexpr std::size_t kMostQueueBytes = 64u << 20;
// [connections] Connections at one time (setting max_clients): further ones are turned away.
inline constexpr std::size_t kClients = 256;
inline constexpr std::size_t kMostClients = 65536;
// [connections] Connections of one user (setting user_clients): the process with most of them loses one, or a further
// one is turned away.
inline constexpr std::size_t kUserClients = 224;
// [bytes] Memory that one user's clients take up (setting user_bytes): what makes a client hold more than twice the
// rest of it is refused.
inline constexpr std::size_t kUserBytes = 33554432;
// [bytes] Memory that all clients take up (setting memory_bytes): the same for a user.
inline constexpr std::size_t kMemoryBytes = 50331648;
inline constexpr std::size_t kLeastShareBytes = 262144;
inline constexpr std::size_t kMostShareBytes = 1u << 30;
// [s] Time that a connection has to get a name (setting register_seconds): the client is cut off.
inline constexpr std::uint32_t kRegisterSeconds = 10;
inline constexpr std::uint32_t kMostRegisterSeconds = 3600;
// [s] Time to deliver what is queued when the server is stopped (setting stop_seconds): the log names the rest.
inline constexpr std::uint32_t kStopSeconds = 5;
inline constexpr std::uint32_t kMostStopSeconds = 60;
// [messages] Messages of one client that are routed in one turn: the rest is routed after those of the others.
inline constexpr std::size_t kMessagesInTurn = 256;
// [descriptors] Descriptors of one sender that its receivers leave unread: a further one is dropped.
inline constexpr std::size_t kSentDescriptors = 64;
// [ms] Time for which the sender to a slow reader is paused: it is read again.
inline constexpr std::chrono::milliseconds kSenderPause{200};
// [ms] Time in which a reader reads nothing: no sender is paused for it.
inline constexpr std::chrono::milliseconds kReaderStall{100};
// [ms] Time between log lines about what one client does not read: counted, and told with the next.
inline constexpr std::uint32_t kRefusalPauseMs = 10000;
// [types] Event types in the notice of missed events: further ones are only in its total.
inline constexpr std::size_t kGapTypes = 16;
// [s] Time without an answer from another board (setting board_seconds): its connection ends.
inline constexpr std::uint32_t kBoardSeconds = 12;
inline constexpr std::uint32_t kLeastBoardSeconds = 3;
inline constexpr std::uint32_t kMostBoardSeconds = 3600;
// [s] Age of a body file that belongs to no message in transit: removed at a start or after a client has ended.
inline constexpr std::chrono::seconds kBodyFileAge{600};
// [bytes] Body in a file: refused, since no client could receive it.
inline constexpr std::int64_t kBodyFileBytes = 8388608;
// [bytes] Body files copied in one turn for one client: the rest is routed after the messages of the others.
inline constexpr std::size_t kCopiedInTurn = 1048576;
// [bytes] Restful patterns of one client: not registered.
inline constexpr std::size_t kPatternBytes = 16384;
// [bytes] Request to the server in a body file: the rest is ignored.
inline constexpr std::size_t kRequestInFile = 8192;
// [names] Names with subscriptions made by other daemons: a further one is refused.
inline constexpr std::size_t kSubscribedNames = 1024;
// [posts] Barrier posts without a waiter: the oldest is forgotten.
inline constexpr std::size_t kBarrierPosts = 256;
// [periods] Missed periods of a daemon's reports: the log names it.
inline constexpr int kMissedReports = 3;
// [settings] Trace levels of one daemon: an invalid setting.
inline constexpr std::size_t kTraceLevels = 64;  // so that the registration reply stays short
// [names] Names with trace overrides: a further one is refused.
inline constexpr std::size_t kTraceNames = 256;
// [requests] Pending requests of one client in a list for operators: the oldest is forgotten.
inline constexpr std::size_t kPendingRequests = 16;
// [messages] Unread messages in a client's socket whose number, age and senders are known: a lower bound is shown.
inline constexpr std::size_t kDeliveries = 1024;
// [bytes] Restful patterns of one client in a list for operators: "..." instead of the rest.
inline constexpr std::size_t kListedPatternBytes = 4096;
// [names] Names of daemons that have ended, with the number of lost messages: those of a further one are not shown.
inline constexpr std::size_t kLossNames = 256;
// [s] Time for which daemons wait for each other in a circle (setting deadlock_seconds): the log names them.
inline constexpr std::uint32_t kDeadlockSeconds = 5;
// [messages] Messages of one type a second, each way between two daemons (setting storm_rate): the log names them.
inline constexpr std::uint32_t kStormRate = 1000;
// [s] Time for which they keep up that rate (setting storm_seconds): the log names them.
inline constexpr std::uint32_t kStormSeconds = 10;
inline constexpr std::uint32_t kMostStormRate = 1000000;
inline constexpr std::uint32_t kMostWatchSeconds = 3600;
// [messages] Latest messages that are recorded (setting recorder_frames): the oldest is overwritten.
inline constexpr std::uint32_t kRecorderFrames = 4096;
inline constexpr std::uint32_t kMostRecorderFrames = 32768;
// [files] Recordings of crashes: the oldest is removed.
inline constexpr int kRecorderFiles = 4;
inline constexpr std::uint64_t kLeastTraceFileKiB = 1024;       // daemons ignore less
inline constexpr std::size_t kRefusalList = 4u << 20;           // a reply that a tool can read
inline constexpr std::size_t kControlInFile = 16384;            // sets all trace levels of a daemon
inline constexpr std::uint32_t kTraceOverridesFile = 1u << 20;  // more than all names with all modules take

}  // namespace msgsvr

namespace notifyserver {

// The notification server.

// [connections] Connections at one time (setting max_clients): further ones are turned away.
inline constexpr std::size_t kClients = 128;
inline constexpr std::size_t kMostClients = 65536;
// [bytes] Output that one client leaves unread (setting queue_bytes): the client is cut off.
inline constexpr std::size_t kQueueBytes = 9437184;
inline constexpr std::size_t kMostQueueBytes = 64u << 20;
// [connections] Connections of one user (setting user_clients): further ones are turned away.
inline constexpr std::size_t kUserClients = 96;
// [s] Time for a connection to register (setting register_seconds): it is cut off.
inline constexpr std::chrono::seconds kRegistrationTime{10};
inline constexpr std::uint64_t kMostRegistrationSeconds = 3600;
// [s] Time to deliver what is queued when the server is stopped (setting stop_seconds): the log names the rest.
inline constexpr std::uint32_t kStopSeconds = 5;
inline constexpr std::uint32_t kMostStopSeconds = 60;
// [bytes] Memory that one user's clients take up, input and output (setting user_bytes): the largest is cut off.
inline constexpr std::size_t kUserBytes = 33554432;
// [bytes] Memory that all clients take up (setting memory_bytes): the largest of the largest user is cut off.
inline constexpr std::size_t kMemoryBytes = 67108864;
inline constexpr std::size_t kLeastShareBytes = 65536;
inline constexpr std::size_t kMostShareBytes = 1u << 30;
inline constexpr std::size_t kQueueOverhead = 4096;  // a header, and what it costs to keep a message
inline constexpr std::size_t kLeastDataBytes = 64;
// [bytes] Data that a client sends before it has registered: the client is cut off.
inline constexpr std::size_t kRegistration = 64;
// [requests] Pending requests of one client: the oldest gets an empty reply.
inline constexpr std::size_t kRequests = 64;  // the library waits for one at a time in each process

}  // namespace notifyserver

namespace zortunnel {

// The tunnel to other boards.

// [s] Time that a handshake may take (setting handshake_seconds): the connection is closed.
inline constexpr std::uint32_t kHandshakeSeconds = 10;
inline constexpr std::uint32_t kMostHandshakeSeconds = 600;
// [connections] Connections at one time (setting max_connections): further ones are turned away.
inline constexpr std::size_t kConnections = 256;
// [connections] Unfinished handshakes (setting max_handshakes): the oldest one of the address with most of them ends.
inline constexpr std::size_t kHandshakes = 64;
// [connections] Connections with one board's certificate (setting board_connections): a further one is turned away.
inline constexpr std::size_t kBoardConnections = 64;
inline constexpr std::size_t kMostConnections = 16384;
// [s] Time for the last words of a connection that is ending: they are lost.
inline constexpr std::chrono::seconds kEndTime{10};
inline constexpr std::chrono::milliseconds kFirstPause{250};
// [s] Pause of a board before it tries the gateway again, doubled by each failure from a quarter of a second: stays at
// that.
inline constexpr std::chrono::seconds kMostPause{30};

}  // namespace zortunnel

namespace zorbridge {

// The bridge to the fleet's broker.

// [bytes] Records that wait for the broker (setting queue_bytes): the newest are given up; a gap record counts them.
inline constexpr std::uint64_t kQueueBytes = 33554432;
inline constexpr std::uint64_t kLeastQueueBytes = 65536;
inline constexpr std::uint64_t kMostQueueBytes = 1u << 31;
// [s] Time before waiting records are written to the queue's file (setting group_seconds): written.
inline constexpr std::uint32_t kGroupSeconds = 5;
inline constexpr std::uint32_t kMostGroupSeconds = 3600;
// [bytes] Waiting records that are not in the queue's file yet (setting group_bytes): written at once.
inline constexpr std::uint64_t kGroupBytes = 262144;
inline constexpr std::uint64_t kLeastGroupBytes = 4096;
inline constexpr std::uint64_t kMostGroupBytes = 16u << 20;
// [bytes] Written to the queue's file in a day (setting daily_bytes): records wait in memory only.
inline constexpr std::uint64_t kDailyBytes = 268435456;
inline constexpr std::uint64_t kLeastDailyBytes = 1u << 20;
// [bytes] Records in memory while the file cannot be written, unless group_bytes is more: the newest are given up.
inline constexpr std::uint64_t kUnwrittenBytes = 1048576;
// [groups] Kinds of records in a gap record: those of further ones are counted together.
inline constexpr std::size_t kGapGroups = 32;
// [s] Pause before the queue's file is tried again after a failure, doubled by each from one second: stays at that.
inline constexpr std::chrono::seconds kMostRetryPause{300};
inline constexpr std::chrono::seconds kFirstRetryPause{1};
inline constexpr std::uint64_t kWindowBytes = 1u << 20;  // of written records that stay in memory
inline constexpr std::uint64_t kReadBytes = 128u << 10;  // at once, so that the loop goes on
inline constexpr std::uint64_t kStaleBytes = 4u << 20;   // removed at once
inline constexpr int kBusyMs = 500;                      // for which a user's shell may use the file
// [s] Silence of the broker (setting keep_alive_seconds): the line is given up; silence of the bridge, likewise.
inline constexpr std::uint32_t kKeepAliveSeconds = 90;
inline constexpr std::uint32_t kLeastKeepAliveSeconds = 5;
inline constexpr std::uint32_t kMostKeepAliveSeconds = 3600;
inline constexpr std::uint32_t kFirstPauseSeconds = 10;
// [s] Pause before the next attempt to reach a broker (setting retry_most_seconds), doubled by each failure: stays at
// that.
inline constexpr std::uint32_t kMostPauseSeconds = 300;
inline constexpr std::uint32_t kLongestPauseSeconds = 86400;
// [records] Records sent and not acknowledged by the broker (setting in_flight): further ones wait.
inline constexpr std::uint32_t kInFlight = 64;
inline constexpr std::uint32_t kMostInFlight = 10000;
// [records] Records handed to the line in one turn: the rest follows after what the bus has for the bridge.
inline constexpr std::uint32_t kSentInTurn = 64;
// [records] Answers, and records that are not kept, that wait for the line's room: further ones are dropped.
inline constexpr std::size_t kSentSoon = 1024;
// [bytes] Those answers and records together: further ones are dropped.
inline constexpr std::size_t kSoonBytes = 4u << 20;
// [topics] Topics of which the latest record waits for the line: further records are dropped.
inline constexpr std::size_t kLatestTopics = 256;
// [bytes] Those latest records together: further records are dropped.
inline constexpr std::size_t kLatestBytes = 4u << 20;
inline constexpr std::uint32_t kStatusSeconds = 60;
inline constexpr std::uint32_t kMostStatusSeconds = 86400;
// [bytes] The message server's list in a status: the daemons that do not fit are left out.
inline constexpr std::size_t kStatusList = 262144;
// [requests] Requests from outside that are being served (setting calls): a further one is answered "busy".
inline constexpr std::uint32_t kCalls = 16;
inline constexpr std::uint32_t kMostCalls = 1024;
// [requests] Requests from outside in a second (setting calls_per_second): a further one is answered "busy".
inline constexpr std::uint32_t kCallsPerSecond = 20;
inline constexpr std::uint32_t kMostCallsPerSecond = 10000;
// [requests] Requests from outside that are remembered, so that one that comes twice is served once: the oldest is
// forgotten.
inline constexpr std::size_t kRememberedCalls = 256;
// [bytes] Response topic and correlation data of a request from outside: it is dropped.
inline constexpr std::size_t kReturnBytes = 1024;
// [daemons] Daemons whose trace lines are passed on at one time: a further request is answered "busy".
inline constexpr std::size_t kTraces = 4;
// [s] Time for which trace lines are passed on, whatever the request says: the settings are restored.
inline constexpr std::uint32_t kMostTraceSeconds = 3600;
// [lines] Trace lines passed on in a second: the rest is dropped.
inline constexpr std::uint32_t kTraceLinesPerSecond = 200;
// [lines] Lines of the log in one answer: the oldest are left out.
inline constexpr std::uint32_t kLogLines = 1000;
// [s] Time for which a daemon leaves messages unread: the status names it.
inline constexpr std::chrono::seconds kUnreadTime{10};

}  // namespace zorbridge

namespace zorweb {

// The page for the browser.

// [connections] Connections of browsers (setting max_connections): a further one waits until one ends.
inline constexpr std::size_t kConnections = 256;
inline constexpr std::size_t kMostConnections = 768;  // the loop waits with select, below descriptor 1024
// [bytes] A request's line and headers: refused.
inline constexpr std::size_t kRequestBytes = 16384;
// [bytes] A form: refused.
inline constexpr std::size_t kFormBytes = 4096;
// [s] Time for a request to arrive: its connection is closed.
inline constexpr std::chrono::seconds kRequestTime{15};
// [bytes] Events that a page has not read: it is dropped, and begins anew when it connects again.
inline constexpr std::size_t kStreamBytes = 2u << 20;
// [bytes] Events that all pages together have not read: those that lag behind are dropped.
inline constexpr std::size_t kUnreadBytes = 64u << 20;
// [s] Time without an event: a page gets a sign of life, so that one that has gone is noticed.
inline constexpr int kBeatSeconds = 10;
// [sessions] Logins that have not expired: the oldest has to log in again.
inline constexpr std::size_t kSessions = 64;
inline constexpr std::uint32_t kSessionMinutes = 480;
inline constexpr std::uint32_t kMostSessionMinutes = 10080;
// [logins] Failed logins from an address: then one in 10 s.
inline constexpr int kLoginTries = 5;
inline constexpr std::chrono::seconds kLoginPause{10};
inline constexpr std::size_t kLoginAddresses = 1024;
// [checks] Passwords that are being checked: a further login is refused.
inline constexpr std::size_t kLoginChecks = 4;
// [s] Time for the system to check a password: the login fails.
inline constexpr std::chrono::seconds kLoginTime{30};
inline constexpr std::size_t kMostPassword = 512;
inline constexpr std::size_t kLeastToken = 32;  // nobody guesses it, however often
inline constexpr std::uint32_t kIdleSeconds = 10;
inline constexpr std::uint32_t kMostIdleSeconds = 3600;
inline constexpr std::int64_t kHistorySeconds = 600;
// [daemons] Daemons whose rates are kept for the plots: further ones have none.
inline constexpr std::size_t kHistoryDaemons = 256;
// [losses] Losses that the page lists: the oldest are forgotten.
inline constexpr std::size_t kLosses = 100;
// [daemons] Daemons on the page: further ones are counted.
inline constexpr std::size_t kShownDaemons = 500;
inline constexpr std::size_t kShownEdges = 1000;
// [messages] Messages a second that a page shows: the rest is counted.
inline constexpr std::uint32_t kTrafficPerSecond = 200;
// [messages] Messages a second that are copied for the pages: none until the next second.
inline constexpr std::uint32_t kCopiesPerSecond = 2000;
inline constexpr std::size_t kTrafficBody = 400;
// [lines] Lines of each log on the page: the oldest are left out.
inline constexpr std::uint32_t kLogLines = 200;
inline constexpr std::size_t kLogBytes = 65536;

}  // namespace zorweb

namespace mlogserver {

// The logging daemon.

// [statistics] Statistics that are kept (setting max_statistics): a new one is refused.
inline constexpr std::uint32_t kStatistics = 256;
// [statistics] Statistics of one user (setting user_statistics): a new one is refused.
inline constexpr std::uint32_t kUserStatistics = 192;
inline constexpr std::uint32_t kMostStatistics = 65536;
// [lines] Lines that one user writes at once (setting user_lines): left out and counted.
inline constexpr std::uint32_t kUserLines = 1000;
// [lines] Lines that it then writes in a second (setting user_rate): left out and counted.
inline constexpr std::uint32_t kUserRate = 50;
inline constexpr std::uint32_t kMostUserLines = 1000000;
// [users] Users whose lines are counted, if each has written lately: further ones share one rate.
inline constexpr std::size_t kUsers = 256;

}  // namespace mlogserver

namespace cms {

// The configuration daemon.

// [clients] Clients that have named a user for an export and not requested it: all of them must name it again.
inline constexpr std::size_t kExportUsers = 64;
// [bytes] Configuration in an encrypted export: neither exported nor imported.
inline constexpr std::uint32_t kExportBytes = 16u << 20;
// [bytes] Memory in which the key of an encrypted export is made: a file that asks for more is refused.
inline constexpr std::uint64_t kKeyMemory = 40u << 20;
// [blocks] Blocks of 128 bytes that are mixed to make it: a file that asks for more is refused.
inline constexpr std::uint64_t kKeyWork = 1u << 21;  // a request has 15 s, on the machine of a gateway too
// [bytes] File of a passphrase: refused.
inline constexpr std::size_t kPassphraseFile = 1024;
inline constexpr std::size_t kLeastPassphrase = 12;
inline constexpr std::uint8_t kKeyCost = 14;
inline constexpr std::uint8_t kLeastKeyCost = 10;
inline constexpr std::uint8_t kMostKeyCost = 15;  // within kKeyMemory and kKeyWork

}  // namespace cms

namespace syslogd {

// The log daemon.

// [records] Records in the log (setting max_records): the oldest is deleted.
inline constexpr std::uint32_t kRecords = 2000;
inline constexpr std::uint32_t kMostRecords = 20000;
// [records] Records not yet written: written at once.
inline constexpr std::uint32_t kUnwrittenRecords = 64;
// [s] Time before a record is written (setting flush_seconds): written.
inline constexpr std::uint32_t kFlushSeconds = 10;
inline constexpr std::uint32_t kMostFlushSeconds = 3600;
// [ms] Wait for the file while another process uses it: the record is dropped; a log line.
inline constexpr int kBusyMs = 500;  // another process is a user's shell; senders wait ten times as long

}  // namespace syslogd
}  // namespace zor::limits

#endif
