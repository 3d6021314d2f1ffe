/* The limits of the platform; <zor/limits.h> says how they are written down. A port may have others. */
#ifndef ZOR_PLATFORM_LIMITS_H
#define ZOR_PLATFORM_LIMITS_H

/* The platform. */

/* [bytes] Destination of a bounded function: an argument error. */
#define ZOR_BOUNDED_MAX 0x7fffffffu
/* [bytes] File that is read into memory: ZOR_FILE_E_NO_MEMORY. */
#define ZOR_FILE_READ_MAX 0x8000000u
/* [ms] Wait for the configuration store while another process writes: ZOR_STORE_E_BUSY; a line on standard error. */
#define ZOR_STORE_WAIT_MS 5000
/* [ms] Wait until the system has taken the order to restart: refused. */
#define ZOR_REBOOT_WAIT_MS 10000

#endif
