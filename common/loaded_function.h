// Functions of a library that is loaded when it is first needed.
#ifndef COMMON_LOADED_FUNCTION_H
#define COMMON_LOADED_FUNCTION_H

#include <dlfcn.h>

namespace zor {

// Sets `function` to the library's function of that name; false, and dlerror() says why, when it has none.
template <typename Function>
bool FindLoaded(void *library, const char *name, Function *&function) {
  function = reinterpret_cast<Function *>(::dlsym(library, name));
  return function != nullptr;
}

}  // namespace zor

#endif
