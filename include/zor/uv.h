/* The event loop: everything a daemon needs to run one. */
#ifndef ZOR_UV_H
#define ZOR_UV_H

#include <zor/status.h>
#include <zor/uv_io.h>
#include <zor/uv_lag.h>
#include <zor/uv_loop.h>
#include <zor/uv_process.h>
#include <zor/uv_timer.h>

#endif
