/*
 * What the Python module needs of the library in one call each, so that Python crosses into C once for a request, a
 * message or a turn of the loop.
 *
 * 1. All of it belongs to the thread that opened the bus, as the library does.
 * 2. The functions at the end are Python's: they never let an exception through.
 */
#ifndef ZOR_PYTHON_NATIVE_H
#define ZOR_PYTHON_NATIVE_H

#include <stdint.h>
#include <zor/msg_head.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A wait that has no reply yet: Python runs its signal handlers and waits on. */
#define ZOR_PY_AGAIN UINT32_C(2)
/* A wait that has set aside so many other messages that it gives up. */
#define ZOR_PY_FLOODED UINT32_C(3)

/* Joins the bus. ZOR_E_REFUSED when no name was granted; else the status of ZOR_MSG_Init or ZOR_MSG_EnableRejoin. */
uint32_t zor_py_open(const char *name, int rejoin);

/* Leaves the bus. */
void zor_py_close(void);

/* For a forked child: forgets bus and loop without a trace on the parent's connections. */
void zor_py_forget(void);

/* Sends a message with that sequence number. */
uint32_t zor_py_send(const char *destination, uint32_t type, uint32_t word, uint32_t sequence, const char *body,
                     uint32_t length);

/* The next sequence number. */
uint32_t zor_py_next(void);

/* Waits up to sliceMs for the reply of that type and number, from source unless that is empty. Other messages are left
   to the loop. The reply is the caller's; null with *status ZOR_PY_AGAIN, ZOR_PY_FLOODED, ZOR_E_PEER_GONE or another
   one. */
ZOR_MSG_HEAD *zor_py_await(const char *source, uint32_t type, uint32_t sequence, uint32_t sliceMs, uint32_t *status);

/* The next descriptor that comes, in the same way; -1 with a status. */
int zor_py_receive_fd(uint32_t sliceMs, uint32_t *status);

/* The JSON text of an event with items, a malloc block, from its body; null when it has none. */
char *zor_py_event_text(char *body);

/* Publishes an event with count items, whose names and values follow each other, each with its NUL. */
uint32_t zor_py_publish_items(uint32_t type, const char *name, const char *texts, uint32_t count);

/* A timer that calls zor_py_on_timer with id; null without memory. */
void *zor_py_timer(uint32_t intervalMs, uint32_t repeatCount, uintptr_t id);
void zor_py_timer_stop(void *timer);

/* Calls zor_py_on_readable with id while the descriptor is readable; owns the descriptor when it returns a watcher. */
void *zor_py_watch(int fd, uintptr_t id);
void zor_py_unwatch(void *watcher);

/* Runs the loop until it is stopped, or for limitMs unless that is 0. */
uint32_t zor_py_run(uint32_t limitMs);
void zor_py_stop(void);

/* Does what is due and ready without waiting. */
uint32_t zor_py_pass(void);

/* A descriptor that is readable when zor_py_pass has something to do, for other loops; -1 and errno. It is closed by
   zor_py_close. zor_py_sync brings it up to date after anything but zor_py_pass that may have changed the loop. */
int zor_py_descriptor(void);
void zor_py_sync(void);

extern void zor_py_on_message(uint32_t type, uint32_t sequence, uint32_t word, char *source, char *body,
                              uint32_t length);
extern void zor_py_on_link(uint32_t event);
extern void zor_py_on_timer(uintptr_t id);
extern void zor_py_on_readable(uintptr_t id);

#ifdef __cplusplus
}
#endif

#endif
