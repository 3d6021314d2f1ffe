#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <fstream>
#include <string>

#include "common/unique_fd.h"
#include "sockutil/socket_fixture.h"
#include "support/capture.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

// The address of a socket, and the device to which it is bound.
std::string PlaceOf(int fd) {
  sockaddr_storage name = {};
  socklen_t size = sizeof name;
  if (::getsockname(fd, reinterpret_cast<sockaddr *>(&name), &size) != 0) return "none";
  char device[IFNAMSIZ] = {};
  socklen_t deviceSize = sizeof device;
  ::getsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, device, &deviceSize);
  return TextOf(reinterpret_cast<sockaddr *>(&name), size) + ' ' + device;
}

TEST(Server, IsBoundToAnAddressOrADeviceAndToAnyAddressWhenThereIsNoSuchDevice) {
  const struct {
    const char *where;
    uint32_t flags;
    const char *place;
  } cases[] = {
      {"::1", ZOR_ADDR_UDP, "::1 "}, {"lo", ZOR_ADDR_UDP | ZOR_ADDR_IPV6, ":: lo"},     {nullptr, 0, "0.0.0.0 "},
      {"no device", 0, "0.0.0.0 "},  {"a name that no device can have", 0, "0.0.0.0 "}, {"192.0.2.1", 0, "none"},
  };
  for (const auto &each : cases) {
    const UniqueFd server = [&each] {
      const Capture output;
      return UniqueFd(ZOR_UTIL_SocketCreateServerEx(each.where, 0, each.flags, "lo"));
    }();
    EXPECT_EQ(PlaceOf(server.get()), each.place);
    EXPECT_TRUE(!server.valid() || ::fcntl(server.get(), F_GETFD) == FD_CLOEXEC);
  }
}

TEST(LocalServer, ReplacesWhatIsAtItsPathUnlessThatIsTooLong) {
  const TempRoot root;
  for (const size_t length : {107u, 108u, 109u}) {
    std::string path = root.Path("/");
    path += std::string(length - path.size(), 's');
    std::ofstream(path) << "in the way";
    const Capture output;
    const UniqueFd server(ZOR_UTIL_SocketCreateServer(path.c_str(), 0, ZOR_ADDR_LOCAL));
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(server.valid(), length <= 108);
    EXPECT_TRUE(server.valid() ? status.st_mode == (S_IFSOCK | 0660) : S_ISREG(status.st_mode)) << length;
  }
}

}  // namespace
}  // namespace zor::test
