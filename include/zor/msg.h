/* The message bus: everything a daemon needs to talk to other daemons. */
#ifndef ZOR_MSG_H
#define ZOR_MSG_H

#include <zor/msg_build.h>
#include <zor/msg_bus.h>
#include <zor/msg_dispatch.h>
#include <zor/msg_head.h>
#include <zor/msg_rejoin.h>
#include <zor/msg_request.h>
#include <zor/msg_wire.h>
#include <zor/status.h>

#endif
