/* Status codes of the bus, the loop and trace. 0 is success; a function's own comment says when it returns which. */
#ifndef ZOR_STATUS_H
#define ZOR_STATUS_H

#include <stdint.h>

#define ZOR_OK UINT32_C(0)
#define ZOR_E_CONNECT UINT32_C(0x10000) /* no socket, or no server at the other end */
#define ZOR_E_ARGUMENT \
  UINT32_C(0x10001) /* null or invalid argument, or a reply that should have come back and did not */
#define ZOR_E_REFUSED UINT32_C(0x10002)       /* registered, but the server granted no name */
#define ZOR_E_NOT_CONNECTED UINT32_C(0x10003) /* the bus is not initialised */
#define ZOR_E_PEER_GONE UINT32_C(0x10004)     /* end of file, EPIPE, or the destination is not on the bus */
#define ZOR_E_TIMEOUT                                                                                                \
  UINT32_C(0x10005) /* nothing within the wait, or too many unrelated messages; a loop that left because it was idle \
                     */
#define ZOR_E_NO_MEMORY UINT32_C(0x10006) /* out of memory, or a size beyond the allocation limit */
#define ZOR_E_IO UINT32_C(0x10007)        /* a system call failed, a torn header, or a required callback is missing */
#define ZOR_E_NOT_WRITABLE                                                                                        \
  UINT32_C(0x10008)                       /* the socket did not become writable, or no memory for the file header \
                                           */
#define ZOR_E_BODY_FILE UINT32_C(0x1000d) /* a large body could not be written to its file */
#define ZOR_E_BUSY UINT32_C(0x10014)      /* a synchronous spawn is already running */

#endif
