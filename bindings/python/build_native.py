"""Writes the C source of the extension module zor._native. Usage: build_native.py NATIVE.H OUTPUT.c"""
import pathlib
import re
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

uint32_t ZOR_MSG_SendFd(int fd);
uint32_t ZOR_MSG_SubscribeEventForOtherApp(uint32_t event, const char *name);
uint32_t ZOR_MSG_UnSubscribeEventForOtherApp(uint32_t event, const char *name);
const char *ZOR_EVT_GetEventModuleNameByEventType(uint32_t type);
uint32_t ZOR_EVT_GetMsgTypeByEventModuleName(const char *module);
const char *ZOR_UTIL_GetCurrUTCTimeStamp(void);
void free(void *block);
"""

SOURCE = """
#include <stdlib.h>
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/platform/system.h>
#include "native.h"
"""

# Functions that Python provides and C calls.
CALLBACK = re.compile(r"^extern (void zor_py_on_[^;]*;)", re.MULTILINE)


def own_declarations(header):
    """Those of our own header, as cffi takes them: without what is for the preprocessor."""
    text = re.sub(r"^#ifdef __cplusplus$.*?^#endif$", "", header, flags=re.MULTILINE | re.DOTALL)
    text = re.sub(r"^#.*$", "", text, flags=re.MULTILINE)
    return CALLBACK.sub(r'extern "Python+C" { \1 }', text)


ffi = FFI()
ffi.cdef(DECLARATIONS)
ffi.cdef(own_declarations(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8")))
ffi.set_source("zor._native", SOURCE)
ffi.emit_c_code(sys.argv[2])
