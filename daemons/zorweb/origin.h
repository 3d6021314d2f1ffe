// Whether a request comes from a page of ours.
//
// A page of another site can make the browser of somebody who may look at the bus send requests here, and can give its
// own name this server's address (DNS rebinding), so that the browser takes the replies for that site's. Such requests
// betray themselves: by a Host that nobody has given us, by an Origin other than ourselves, or by what the browser says
// of their source. An address as Host is always ours: a name is what can be rebound.
#ifndef ZORWEB_ORIGIN_H
#define ZORWEB_ORIGIN_H

#include <string>
#include <string_view>
#include <vector>

namespace zor::web {

struct OriginHeaders {
  std::string host;
  unsigned hosts = 0;     // headers of that name
  std::string origin;     // empty: none
  std::string fetchSite;  // Sec-Fetch-Site; empty: none
  std::string fetchMode;
};

// Why the request is refused; null if it is not. `names` are the host names that the settings allow.
const char *ForeignBecause(const OriginHeaders &headers, bool usesTls, const std::vector<std::string> &names);

// The name or address in a Host header, without its port and in lower case; empty if it is malformed.
std::string HostIn(std::string_view header);

}  // namespace zor::web

#endif
