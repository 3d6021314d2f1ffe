// What happens when the connection to the notification server has ended: the daemon is notified, and the client
// connects again.
//
// Without zor/notify_rejoin.h the end destroys the client. With it the handlers, the messages set aside and the
// sequence counter stay; senders see `lost` until the module is registered again.
#ifndef NOTIFYCLIENT_NOTIFY_REJOIN_H
#define NOTIFYCLIENT_NOTIFY_REJOIN_H

namespace zor::notify {

// The end of the connection was read. What was asked for happens from the loop, never inside this call.
void OnConnectionEnded() noexcept;

// The caller has given the client another descriptor: attempts end.
void OnSwitched() noexcept;

// Ends attempts and forgets procedure and settings.
void StopRejoin() noexcept;

}  // namespace zor::notify

#endif
