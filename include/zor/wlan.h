/*
 * The addresses of the gateway's interfaces, derived from its one base MAC by fixed rules, so that every daemon
 * computes the same ones.
 *
 * Conventions:
 * 1. A binary MAC is 6 bytes, most significant first. The vendor part (bytes 0 to 2) is always copied; the rest is one
 *    24-bit number of which a carry out of byte 3 is lost.
 * 2. outputLength is the room in output, in bytes. Input and output may be the same buffer.
 * 3. Every function returns 0; 1, with the output untouched, for a null input, a null output or too little room: 6
 *    bytes, 18 for the text form. Each failure is logged under the tag "wlancomapi" at level 2.
 */
#ifndef ZOR_WLAN_H
#define ZOR_WLAN_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* The 2.4 GHz WLAN MAC: the base plus 9, rounded down to a multiple of 4. */
ZOR_API uint32_t ZOR_WLAN_GetWlanMacFromBaseMac(const uint8_t *baseMac, uint8_t *output, uint32_t outputLength);

/* The hidden "down" interface of the 2.4 GHz radio: the WLAN MAC plus 1. */
ZOR_API uint32_t ZOR_WLAN_GetWlanDownHiddenIntfMacFromBaseMac(const uint8_t *baseMac, uint8_t *output,
                                                              uint32_t outputLength);

/* The "up" interface of the 2.4 GHz radio: the WLAN MAC plus 3. */
ZOR_API uint32_t ZOR_WLAN_GetWlanUpIntfMacFromBaseMac(const uint8_t *baseMac, uint8_t *output, uint32_t outputLength);

/* The 5 GHz WLAN MAC: the WLAN MAC plus 4. */
ZOR_API uint32_t ZOR_WLAN_GetWlan5gMacFromBaseMac(const uint8_t *baseMac, uint8_t *output, uint32_t outputLength);

/* The "up" interface of the 5 GHz radio: the same address as the 5 GHz MAC. */
ZOR_API uint32_t ZOR_WLAN_GetWlan5gUpIntfMacFromBaseMac(const uint8_t *baseMac, uint8_t *output, uint32_t outputLength);

/* The first Ethernet uplink: the base plus 1. */
ZOR_API uint32_t ZOR_WLAN_GetInternetEthUpIntfMacFromBaseMac(const uint8_t *baseMac, uint8_t *output,
                                                             uint32_t outputLength);

/* The second Ethernet uplink: the base plus 2. */
ZOR_API uint32_t ZOR_WLAN_GetQuorelEthUpIntfMacFromBaseMac(const uint8_t *baseMac, uint8_t *output,
                                                           uint32_t outputLength);

/* mac plus an offset below 14; a greater one fails with 1. */
ZOR_API uint32_t ZOR_WLAN_IncreaseMacValByOffset(const uint8_t *mac, uint32_t offset, uint8_t *output,
                                                 uint32_t outputLength);

/* The hidden "down" interface of the 5 GHz radio, from the 5 GHz MAC as text ("00:11:22:33:44:55"): a copy, cut to the
   room, in which the first character that is not 'F' becomes 'F', looked for at the positions 9, 10, 12, 13, 7, 6, 4,
   3, 0, 15, 16 in this order. */
ZOR_API uint32_t ZOR_WLAN_GetWlan5gDownHiddenIntfMacFrom5gMainMac(const char *mac, char *output, uint32_t outputLength);

ZOR_END_DECLS

#endif
