/*
 * Socket utilities: closing, multicast, address lists, name resolution and server sockets.
 *
 * 1. Address lists are those of <netdb.h>. Every list that comes from here is released with ZOR_UTIL_FreeAddrInfo.
 * 2. The address flags below choose the kind of socket: TCP over IPv4 without any.
 * 3. Statuses are those of the loop: 0, ZOR_E_ARGUMENT, ZOR_E_IO.
 * 4. Messages go to standard output.
 */
#ifndef ZOR_SOCKET_H
#define ZOR_SOCKET_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

struct addrinfo;

/* Address flags; TCP over IPv4 without any. Used with ZOR_UTIL_ParseIPAddress, ZOR_UTIL_MakeAddrInfo,
   ZOR_UTIL_SocketCreateServer and ZOR_UTIL_SocketCreateServerEx. */
#define ZOR_ADDR_UDP UINT32_C(0x1)
#define ZOR_ADDR_IPV6 UINT32_C(0x4)
#define ZOR_ADDR_LOCAL UINT32_C(0x8) /* a local stream socket at a path; for servers only */

/* The parameter of the configuration store, 4 bytes, that is 1 when names are resolved to IPv6 addresses too. */
#define ZOR_PARA_IPV6_ENABLED UINT32_C(0x6a003b81)

/* Clears O_NONBLOCK, shuts both directions down and closes, retrying a close that a signal interrupted. A negative
   descriptor is ignored. Returns the result of close, 0 for a negative descriptor. */
ZOR_API int32_t ZOR_UTIL_SocketClose(int32_t fd);

/* Sets the time to live of the IPv4 multicast that a socket sends. Returns 0; ZOR_E_ARGUMENT for the descriptor -1;
   0xffffffff when the system refuses. */
ZOR_API uint32_t ZOR_UTIL_SocketSetTTL(int32_t fd, uint8_t ttl);

/* Does nothing. Returns 0. */
ZOR_API uint32_t ZOR_UTIL_SocketSetMcastIf(void);

/*
 * Joins a multicast group and switches SO_BROADCAST on. The family is that of the local address. IPv4: the group is
 * joined, and multicast sent, on the interface with that address, and ifname is not looked at. IPv6: the group is
 * joined on the interface of that name (null: "br0"), and a failure of that is not reported.
 * Returns 0; ZOR_E_ARGUMENT for the descriptor -1, a null group or local address, an address of another family, or an
 * IPv4 group that is no address; ZOR_E_IO when the IPv4 group cannot be joined.
 */
ZOR_API uint32_t ZOR_UTIL_SocketJoinMcastEx(int32_t fd, const char *group, const struct addrinfo *local,
                                            const char *ifname);

/* The same with the interface "br0". */
ZOR_API uint32_t ZOR_UTIL_SocketJoinMcast(int32_t fd, const char *group, const struct addrinfo *local);

/* Resolves a name in the place of ZOR_UTIL_GetIpAddresses, whose arguments it gets and whose status it returns. The
   list at outList, null so far, must be one that freeaddrinfo releases. */
typedef uint32_t (*ZOR_NAME_RESOLVE_FUNC)(const char *host, const struct addrinfo *hint, uint16_t port,
                                          struct addrinfo **outList);

/* Sets the resolver of the process; null, the initial value, for none. */
ZOR_API void ZOR_UTIL_RegNameResolveFunc(ZOR_NAME_RESOLVE_FUNC resolve);

/*
 * Resolves a host name or address to stream addresses with that port; may block as long as the system's resolver. The
 * hint is for the registered resolver alone, and may be null. With the parameter ZOR_PARA_IPV6_ENABLED 1, IPv6
 * addresses come first, the IPv4 ones behind them; else, and for an IPv4 address, there are only IPv4 ones. A lookup
 * that fails for now is tried once more.
 * Returns 0; ZOR_E_ARGUMENT for a null host or outList; ZOR_E_IO when the last lookup, that of the IPv4 addresses,
 * failed: *outList may hold IPv6 addresses then. Otherwise *outList is null on failure. Release the list in every case.
 * Prints "[spdn]ZOR_UTIL_UpRootPrivileges failed", without a line end, and continues when privileges cannot be raised.
 */
ZOR_API uint32_t ZOR_UTIL_GetIpAddresses(const char *host, const struct addrinfo *hint, uint16_t port,
                                         struct addrinfo **outList);

/* The list for a numeric address to bind to, of either family whatever the flags; the wildcard addresses for a null
   host. Whatever the system's resolver accepts as a number is accepted: "1" and "0x7f.1" too. Null for other texts. */
ZOR_API struct addrinfo *ZOR_UTIL_ParseIPAddress(uint32_t flags, const char *host, uint16_t port);

/* Releases a list. Null is a no-op. */
ZOR_API void ZOR_UTIL_FreeAddrInfo(struct addrinfo *list);

/*
 * A list of one with a copy of that address, in one malloc block: family and type as the flags say, protocol 0.
 * Null for a null address, when there is no memory, or, with "error: not host tool, but malloc 4M, return NULL, malloc
 * len=%d\n", for a block of more than 8 MiB.
 */
ZOR_API struct addrinfo *ZOR_UTIL_MakeAddrInfo(uint32_t flags, const void *address, uint32_t addressLength);

/* A copy of the first address of a list, or of the whole list when all is nonzero: one malloc block for each, without
   canonical names. Null for null or when a block cannot be had; nothing is left behind then. */
ZOR_API struct addrinfo *ZOR_UTIL_CopyAddrInfo(const struct addrinfo *list, uint32_t all);

/* Tests whether two addresses are equal but for family and port. Returns 1 when both have the same length, 12 bytes or
   more, and are equal; flow information and scope count in IPv6 addresses. Returns 0 otherwise, also for null. */
ZOR_API uint32_t ZOR_UTIL_IsAddrInfoSame(const struct addrinfo *a, const struct addrinfo *b);

/* Tests whether an address is the loopback address. Returns 1 for 127.0.0.1, no other address of that network, and for
   ::1; else 0, also for null. */
ZOR_API uint32_t ZOR_UTIL_IsAddrLoopback(const struct addrinfo *address);

/* ZOR_UTIL_SocketCreateServerEx without an interface name. */
ZOR_API int32_t ZOR_UTIL_SocketCreateServer(const char *addressOrDevice, uint16_t port, uint32_t flags);

/*
 * Makes a bound, close-on-exec socket that does not listen yet. Returns the descriptor, which is the caller's, or -1.
 *
 * addressOrDevice is an address, with a ':' an IPv6 one whatever the flags; or the name of a network device, for a
 * socket with the wildcard address that is bound to this device if the system allows it; or null for the wildcard
 * address. The socket may reuse its address, sends without delay, and reports type of service and device of what it
 * receives; an IPv6 socket takes no IPv4; a UDP socket waits at most 2 s in a read. The scope of a link-local IPv6
 * address, and of every IPv6 UDP socket, is the interface ifname (null: "br0"). Without a line end are printed, and no
 * failures:
 * "\n===========set tos failed", "\n===========set receive dev failed", "set udp timeout error",
 * "\n===========set ipv6 traffic class failed" and "\n===========set ipv6 receive  dev failed".
 *
 * With ZOR_ADDR_LOCAL, addressOrDevice is a path of at most 108 bytes, from which whatever is there is removed first; a
 * longer one fails like a bind, and an empty one or null without a message. The socket gets the group 2591, by the
 * command "chown :2591 PATH" to ZOR_UTIL_ExecCmdNoHang, and the mode 0660. "bind failed, rc=%d errno=%d" is a failure;
 * "chmod for unixsock error." is not.
 */
ZOR_API int32_t ZOR_UTIL_SocketCreateServerEx(const char *addressOrDevice, uint16_t port, uint32_t flags,
                                              const char *ifname);

/* Tests whether a socket listens on this TCP port over IPv4, whatever its address. Returns 1 if so, else 0, also when
   that cannot be read. Prints "%d msgapi parse tcpfile failed!\n" with the process id for each line of "/proc/net/tcp"
   that is no socket: for its headline at least. */
ZOR_API uint32_t ZOR_UTIL_CheckTCPPortInUse(uint16_t port);

ZOR_END_DECLS

#endif
