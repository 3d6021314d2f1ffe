"""Writes the C source of the extension module zor._native. Usage: build_native.py OUTPUT.c"""
import sys

from cffi import FFI

DECLARATIONS = """
typedef struct {
  uint32_t type;
  uint32_t sequence;
  char source[12];
  char destination[12];
  uint32_t data;
  uint32_t bodyLength;
} ZOR_MSG_HEAD;

uint32_t zor_py_open(const char *name, int rejoin);
void zor_py_close(void);
void zor_py_forget(void);
uint32_t zor_py_send(const char *destination, uint32_t type, uint32_t word, uint32_t sequence, const char *body,
                     uint32_t length);
uint32_t zor_py_next(void);
ZOR_MSG_HEAD *zor_py_await(const char *source, uint32_t type, uint32_t sequence, uint32_t sliceMs, uint32_t *status);
int zor_py_receive_fd(uint32_t sliceMs, uint32_t *status);
char *zor_py_event_text(char *body);
uint32_t zor_py_publish_items(uint32_t type, const char *name, const char *texts, uint32_t count);
void *zor_py_timer(uint32_t intervalMs, uint32_t repeatCount, uintptr_t id);
void zor_py_timer_stop(void *timer);
void *zor_py_watch(int fd, uintptr_t id);
void zor_py_unwatch(void *watcher);
uint32_t zor_py_run(uint32_t limitMs);
void zor_py_stop(void);
uint32_t zor_py_pass(void);
int zor_py_descriptor(void);
void zor_py_sync(void);

uint32_t ZOR_MSG_SendFd(int fd);
uint32_t ZOR_MSG_SubscribeEventForOtherApp(uint32_t event, const char *name);
uint32_t ZOR_MSG_UnSubscribeEventForOtherApp(uint32_t event, const char *name);
const char *ZOR_EVT_GetEventModuleNameByEventType(uint32_t type);
uint32_t ZOR_EVT_GetMsgTypeByEventModuleName(const char *module);
const char *ZOR_UTIL_GetCurrUTCTimeStamp(void);
void free(void *block);

extern "Python+C" {
  void zor_py_on_message(uint32_t type, uint32_t sequence, uint32_t word, char *source, char *body, uint32_t length);
  void zor_py_on_link(uint32_t event);
  void zor_py_on_timer(uintptr_t id);
  void zor_py_on_readable(uintptr_t id);
}
"""

SOURCE = """
#include <stdlib.h>
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/platform/system.h>
#include "native.h"
"""

ffi = FFI()
ffi.cdef(DECLARATIONS)
ffi.set_source("zor._native", SOURCE)
ffi.emit_c_code(sys.argv[1])
