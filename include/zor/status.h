/* Status codes of the bus, the loop and trace. 0 is success; a function's own comment says when it returns which. */
#ifndef ZOR_STATUS_H
#define ZOR_STATUS_H

#include <stdint.h>

#define ZOR_OK UINT32_C(0)

/* No socket, or no server at the other end. */
#define ZOR_E_CONNECT UINT32_C(0x10000)

/* A null or otherwise invalid argument; an expected reply that is missing. */
#define ZOR_E_ARGUMENT UINT32_C(0x10001)

/* Registered, but the server granted no name. */
#define ZOR_E_REFUSED UINT32_C(0x10002)

/* The bus is not initialised. */
#define ZOR_E_NOT_CONNECTED UINT32_C(0x10003)

/* End of file on read, EPIPE on write, or the destination of a request is not on the bus. */
#define ZOR_E_PEER_GONE UINT32_C(0x10004)

/* No message within the wait, or too many unrelated ones; a loop that ended because it was idle. */
#define ZOR_E_TIMEOUT UINT32_C(0x10005)

/* Out of memory, or a size beyond the allocation limit. */
#define ZOR_E_NO_MEMORY UINT32_C(0x10006)

/* A system call failed for any other reason, a header or descriptor frame is torn, or a callback is missing. */
#define ZOR_E_IO UINT32_C(0x10007)

/* The socket did not become writable, or no memory for the header that names a body file. */
#define ZOR_E_NOT_WRITABLE UINT32_C(0x10008)

/* A large body could not be written to its file. */
#define ZOR_E_BODY_FILE UINT32_C(0x1000d)

/* A synchronous spawn is already running. */
#define ZOR_E_BUSY UINT32_C(0x10014)

#endif
