// A process that prints the device list. It only reads a file, so it need not be on the bus. The exit status is 0
// when it could be read.
#include <zor/kiva.h>

#include <cstdio>

int main() {
  dev_kivainfo_list head;
  const uint32_t status = ZOR_UPG_GetKivaInfoList(&head);
  for (const dev_kivainfo_list *node = head.next; node != nullptr; node = node->next) {
    char mac[13] = "?";
    ZOR_KIVA_DisguiseMacAddress(node->info.mac, mac, sizeof mac);
    std::printf("device %s: state %u, %u bytes loaded\n", mac, node->info.status.state, node->info.status.dlSize);
  }
  ZOR_UPG_DestroyKivaInfoList(&head.next);
  return status == 0 ? 0 : 1;
}
