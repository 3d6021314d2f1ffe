#include <stdio.h>
#include <stdlib.h>
#include <zor/dns.h>

int main(void) {
  /* A reply with one question and one answer, as it came from a socket. */
  static const uint8_t reply[] = {0x12, 0x34, 0x81, 0x80, 0, 1, 0, 1, 0, 0, 0, 0,    2, 'g', 'w', 0, 0, 1,
                                  0,    1,    0xc0, 0x0c, 0, 1, 0, 1, 0, 0, 0, 0x3c, 0, 4,   10,  0, 0, 1};
  DnsPacket *packet = malloc(sizeof *packet + sizeof reply);
  if (packet == NULL) return 1;
  packet->length = sizeof reply;
  for (uint32_t i = 0; i < sizeof reply; ++i) packet->data[i] = reply[i];
  const uint8_t *record = ZOR_DNS_PacketGetFirstRR(packet);
  DnsRecordValues values;
  uint32_t length = 0;
  if (record != NULL && ZOR_DNS_PacketGetValuesOfRR(packet, record, &values, &length) == ZOR_DNS_OK) {
    printf("%s: type %u, %u s, %u.%u.%u.%u\n", values.name, (unsigned)values.type, (unsigned)values.ttl,
           values.rdata[0], values.rdata[1], values.rdata[2], values.rdata[3]);
  }
  free(packet);
  char address[64] = "";
  uint32_t isIpv4 = 0;
  ZOR_DNS_PacketPTRName2Addr("4.3.2.1.in-addr.arpa", address, sizeof address, &isIpv4);
  printf("%s\n", address);
  return 0;
}

/* Prints:
 * gw: type 1, 60 s, 10.0.0.1
 * 1.2.3.4
 */
