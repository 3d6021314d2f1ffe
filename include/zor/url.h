/*
 * URLs: protocols and their default ports, parsing, two encoders; and a codec for storage paths.
 *
 * Conventions:
 * 1. Texts that are returned are malloc blocks, which the caller frees.
 * 2. Characters are ASCII, whatever the locale.
 * 3. Work of more than 8 MiB is refused with a line on standard output:
 *    "error: not host tool, but malloc 4M, return NULL, malloc len=%d\n".
 */
#ifndef ZOR_URL_H
#define ZOR_URL_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* The built-in protocols: "HTTP" with port 80, "HTTPS" 443, "FTP" 21, "TFTP" 63. Used with
   ZOR_UTIL_GetProtocolTypeIdxFromStr, ZOR_UTIL_GetProtocolTypeStrFromIdx, ZOR_UTIL_GetDftPortByProtocolIdx,
   ZOR_UTIL_ParseUrl and ZOR_UTIL_ParseUrlEx. */
#define ZOR_URL_HTTP 0
#define ZOR_URL_HTTPS 1
#define ZOR_URL_FTP 2
#define ZOR_URL_TFTP 3
/* The index of an application's first own protocol. Used with g_apcExtendProtocols and g_aulExtendPorts. */
#define ZOR_URL_FIRST_EXTENSION 4

/* An application's own protocols: a null-terminated array of names and a zero-terminated array of their default ports,
   in the same order. Null at first, to be set at start. */
ZOR_API extern const char *const *g_apcExtendProtocols;
ZOR_API extern const uint32_t *g_aulExtendPorts;

/* The index of a protocol, compared whole and without regard to case; -1 when it is unknown, or for null. */
ZOR_API int32_t ZOR_UTIL_GetProtocolTypeIdxFromStr(const char *name);

/* The name of a protocol, not to be freed; null for an index that has none. */
ZOR_API const char *ZOR_UTIL_GetProtocolTypeStrFromIdx(int32_t index);

/* The default port of a protocol; 0 for an index that has none. */
ZOR_API uint32_t ZOR_UTIL_GetDftPortByProtocolIdx(int32_t index);

/* Tests whether a URI may contain a character. Returns 0 for a space and for < > # % { } | \ ^ ~ [ ] `, which it must
   not contain; 1 for any other value, those outside printable ASCII included. */
ZOR_API uint32_t UtilIsValidUriCharacter(char character);

/* Escapes what a URI must not contain, as '%' and two lower-case digits. Reserved characters and existing escapes are
   kept; brackets are not. "/" for null and "". Null without memory or when three times the length reaches 8 MiB. */
ZOR_API char *ZOR_UTIL_GetEscapedUri(const char *text);

/*
 * Takes a URL apart: protocol "://" host [":" port] ["/" path]. White space in front of it is skipped. Each out pointer
 * may be null. Returns 1, or 0 when the URL is malformed, names an unknown protocol or a port outside 1 to 65535, or
 * memory is short; *protocol and *port may then be set.
 *
 * - *port is the protocol's default port when the URL has none. The port is sought behind the first ':', even if that
 *   is in the path: "HTTP://host/a:b" fails, and "HTTP://host/a:8080" has port 8080.
 * - *path begins with '/', extends to the end of the URL, query included, and is escaped; null when there is none.
 * - *host may be empty. A host in brackets comes without them, unchecked, unless loose is nonzero.
 * - With loose nonzero, a bracketed host that is no IPv6 address keeps its brackets, and one whose bracket is never
 *   closed is an ordinary host.
 */
ZOR_API uint32_t ZOR_UTIL_ParseUrlEx(const char *url, int32_t *protocol, char **host, uint32_t *port, char **path,
                                     uint32_t loose);

/* The same with loose 0. */
ZOR_API uint32_t ZOR_UTIL_ParseUrl(const char *url, int32_t *protocol, char **host, uint32_t *port, char **path);

/* Encodes a form value: a space becomes '+'; letters, digits and -_.~*'() are kept; any other byte becomes '%' and two
   upper-case digits. Prints "urlencode dst len %d.\n" with the size of the result, its NUL included. Null for null,
   without memory, or from 8 MiB on. */
ZOR_API char *ZOR_UTIL_UrlEncode(const char *text);

/*
 * Turns a storage path into a token: each piece between slashes as "-" and its base64 text, so "/mnt/usb1/a" becomes
 * "-dXNiMQ==-YQ==". Empty pieces are left out. When the path contains "/mnt" anywhere, its first 4 characters are taken
 * for that prefix and dropped, whatever they are. Where nothing is left, the token is "/mnt", which does not decode.
 * Returns 0; ZOR_E_ARGUMENT for a null or zero argument, when the token with its NUL does not fit into size bytes, or
 * without memory. On failure the output holds what was written so far.
 */
ZOR_API uint32_t ZOR_UTIL_EncodePath(const char *path, char *output, uint32_t size);

/*
 * Turns a token back into a path that begins with "/mnt". Spaces in it are read as '+'. A decoded piece may be anything
 * that its sender chose, ".." and slashes included: the caller must check the path before it opens anything.
 * Returns 0; ZOR_E_ARGUMENT for a null or zero argument, a token without '-' in front, a piece that is not base64 or
 * is empty, or a path that does not fit into size bytes with its NUL; ZOR_E_NO_MEMORY. On failure the output holds what
 * was written so far.
 */
ZOR_API uint32_t ZOR_UTIL_DecodePath(const char *token, char *output, uint32_t size);

ZOR_END_DECLS

#endif
