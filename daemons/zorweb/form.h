// The body of a form that a browser has sent.
#ifndef ZORWEB_FORM_H
#define ZORWEB_FORM_H

#include <string>
#include <string_view>

namespace zor::web {

// The value of a field of application/x-www-form-urlencoded; empty if there is none, or it is malformed.
std::string FormField(std::string_view form, std::string_view name);

}  // namespace zor::web

#endif
