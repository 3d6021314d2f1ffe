// The last resort when the notification server takes nothing any more.
#ifndef NOTIFYCLIENT_NOTIFY_REBOOT_H
#define NOTIFYCLIENT_NOTIFY_REBOOT_H

namespace zor::notify {

// Raises privileges and starts the command "reboot" as the search path finds it. The process continues.
void StartReboot() noexcept;

}  // namespace zor::notify

#endif
