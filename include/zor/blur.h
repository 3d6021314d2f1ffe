/*
 * Privacy masking: hides personal data before it reaches a log or a page, by replacing characters with '*'.
 *
 * Conventions:
 * 1. The functions that return a text return a static buffer of their own, which the next call of the same function
 *    overwrites; the argument may be that very buffer. Not for concurrent use.
 * 2. A null argument gives the empty text.
 * 3. Masking takes no memory, so that no address is shown for want of it.
 */
#ifndef ZOR_BLUR_H
#define ZOR_BLUR_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

#define ZOR_BLUR_OK UINT32_C(0)
#define ZOR_BLUR_E_ARGUMENT UINT32_C(0x10001)  /* null, or a file that cannot be opened for reading and writing */
#define ZOR_BLUR_E_IO UINT32_C(0x10007)        /* the file cannot be read */
#define ZOR_BLUR_E_WRITE UINT32_C(0x1000d)     /* a short write */
#define ZOR_BLUR_E_PATH UINT32_C(0x1000f)      /* the path could not be resolved */
#define ZOR_BLUR_E_PATH_LONG UINT32_C(0x10010) /* the path is longer than 4096 characters */

/* Masks a text, cut to 259 characters, from its first MAC address ("00:11:22:33:44:55", '-' too) to its end: every
   character but ':'. */
ZOR_API const char *ZOR_Blur_Mac(const char *text);

/* The same from its first IPv4 address on, for every character but '.'; then every IPv6 address as a whole. */
ZOR_API const char *ZOR_Blur_Ip(const char *text);

/* Masks every IPv6 address in a text, cut to 259 characters: as a whole, separators included. */
ZOR_API const char *ZOR_Blur_Ipv6(const char *text);

/* Masks the last group of every UUID in a text, cut to 259 characters; a UUID has the form
   "1234-5678-9abc-0123456789ab". */
ZOR_API const char *ZOR_Blur_Uuid(const char *text);

/* Masks a name: its first character, "******" and its last one, whatever the length: 7 or 8 characters, or none for an
   empty name. */
ZOR_API const char *ZOR_Blur_Usb_Account(const char *name);

/* Masks an SSID, cut to 35 characters, but for its first and last character; all of it below 3 characters. One that was
   cut shows no last character. */
ZOR_API const char *ZOR_Blur_SSID(const char *ssid);

/*
 * Masks a text file in place: of MAC addresses the octets 2, 3 and 5, of IPv4 addresses 2 and 3, of UUIDs the last
 * group, IPv6 addresses as a whole; then what still looks like a MAC or IPv4 address, to the end of the piece. The
 * length never changes. The file is worked on in pieces of 2048 bytes: an address split between two stays.
 * Returns 0 or one of the ZOR_BLUR_E_ statuses.
 */
ZOR_API uint32_t ZOR_Blur_File(const char *path);

/*
 * Masks a MAC text. fullMask nonzero: out becomes "**:**:**:**:**:**" and mac is not looked at. Else mac must have
 * exactly 17 characters: its twelve digits are masked and its separators kept; mac and out may be the same buffer.
 * size is the room in out, in bytes. Returns 0; the length of a mac of another length, with out untouched; 0x10001 for
 * a null out, a size below 18 or a null mac.
 */
ZOR_API uint32_t ZOR_UTIL_Disguise_MacAddress(uint32_t fullMask, const char *mac, char *out, uint32_t size);

ZOR_END_DECLS

#endif
