// Compile-time proof that the records of the bus have the same layout in memory as on the wire, on every machine.
#include <zor/msg_wire.h>

#include <cstddef>

static_assert(sizeof(ZOR_MSG_HEAD) == ZOR_MSG_HEAD_SIZE);
static_assert(offsetof(ZOR_MSG_HEAD, type) == 0);
static_assert(offsetof(ZOR_MSG_HEAD, sequence) == 4);
static_assert(offsetof(ZOR_MSG_HEAD, source) == 8);
static_assert(offsetof(ZOR_MSG_HEAD, destination) == 20);
static_assert(offsetof(ZOR_MSG_HEAD, data) == 32);
static_assert(offsetof(ZOR_MSG_HEAD, bodyLength) == 36);

static_assert(sizeof(ZOR_MSG_RESTFUL_HEAD) == ZOR_MSG_RESTFUL_HEAD_SIZE);
static_assert(offsetof(ZOR_MSG_RESTFUL_HEAD, word0) == 0);
static_assert(offsetof(ZOR_MSG_RESTFUL_HEAD, word1) == 4);
static_assert(offsetof(ZOR_MSG_RESTFUL_HEAD, prefix) == 8);
static_assert(offsetof(ZOR_MSG_RESTFUL_HEAD, name) == 72);

static_assert(sizeof(ZOR_MSG_REGISTER_REPLY) == 8);
static_assert(offsetof(ZOR_MSG_REGISTER_REPLY, reportSwitch) == 0);
static_assert(offsetof(ZOR_MSG_REGISTER_REPLY, reportSeconds) == 4);

static_assert(sizeof(ZOR_TRACE_SETTINGS_HEAD) == ZOR_TRACE_SETTINGS_HEAD_SIZE);
static_assert(offsetof(ZOR_TRACE_SETTINGS_HEAD, outputIndex) == 0);
static_assert(offsetof(ZOR_TRACE_SETTINGS_HEAD, reserved) == 4);
static_assert(offsetof(ZOR_TRACE_SETTINGS_HEAD, fileMaxKiB) == 8);
static_assert(offsetof(ZOR_TRACE_SETTINGS_HEAD, outputText) == 16);

static_assert(sizeof(ZOR_TRACE_SETTINGS_ENTRY) == 20);
static_assert(offsetof(ZOR_TRACE_SETTINGS_ENTRY, reserved) == 0);
static_assert(offsetof(ZOR_TRACE_SETTINGS_ENTRY, module) == 4);
static_assert(offsetof(ZOR_TRACE_SETTINGS_ENTRY, level) == 16);
