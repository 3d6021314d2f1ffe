#include "zorctl/store_value.h"

#include <zor/platform/config.h>

#include <algorithm>
#include <memory>

#include "zorctl/exit_code.h"
#include "zorctl/format.h"

namespace zor::ctl {
namespace {

struct FreeObject {
  void operator()(ZOR_CFM_OBJ *object) const { ZOR_CFM_FreeObj(object); }
};
using Object = std::unique_ptr<ZOR_CFM_OBJ, FreeObject>;

// The platform does not report a parameter's length, but it leaves the rest of the buffer unchanged: two reads into
// buffers that differ in every byte agree exactly as far as the value goes.
std::string ReadProbed(uint32_t parameter, uint32_t instance, size_t size, const std::string &what) {
  std::string zeros(size, '\0');
  std::string ones(size, '\xff');
  const auto wanted = static_cast<uint32_t>(size);
  CheckStoreStatus(ZOR_DBGetPara(parameter, instance, zeros.data(), wanted), what);
  CheckStoreStatus(ZOR_DBGetPara(parameter, instance, ones.data(), wanted), what);
  const auto end = std::mismatch(zeros.begin(), zeros.end(), ones.begin()).first;
  zeros.erase(end, zeros.end());
  return zeros;
}

Object MakeObject(uint32_t objectClass, uint32_t instance, const messages::Values &values, const std::string &what) {
  ZOR_CFM_OBJ *made = nullptr;
  uint32_t status = ZOR_STORE_E_ARGUMENT;
  for (const auto &[name, value] : values) {
    status = ZOR_CFM_SetObjStrValue(&made, name.c_str(), value.c_str());
    if (status != ZOR_STORE_OK) break;
  }
  Object object(made);
  CheckStoreStatus(status, what);
  object->objectClass = objectClass;
  object->instance = instance;
  return object;
}

std::string Named(const char *kind, uint32_t number) {
  return std::string(kind) + " " + HexText(number);
}

std::string NamedObject(uint32_t objectClass, uint32_t instance) {
  return Named("object of class", objectClass) + ", instance " + std::to_string(instance);
}

}  // namespace

void CheckStoreStatus(uint32_t status, const std::string &what) {
  switch (status) {
    case ZOR_STORE_OK:
      return;
    case ZOR_STORE_E_NOT_FOUND:
      throw Failure(kExitNotFound, "the store has no " + what, "zorctl config list shows its contents");
    case ZOR_STORE_E_BUSY:
      throw Failure(kExitTimeOver, "another process is using the store",
                    "find the process that is changing it, or try again");
    case ZOR_STORE_E_ARGUMENT:
      throw Failure(kExitUsage, what + " cannot have an empty value or name", "give at least one byte");
    case ZOR_STORE_E_NO_MEMORY:
      throw Failure(kExitFailure, "no memory for " + what, "it may be too large for the store");
    default:
      throw Failure(kExitFailure, "the store cannot be read or written",
                    "docs/porting.md describes what to do with a damaged or full one");
  }
}

std::string ReadParameter(uint32_t parameter, uint32_t instance) {
  const std::string what = Named("parameter", parameter) + ", instance " + std::to_string(instance);
  for (size_t size = 4096;; size *= 8) {
    std::string value = ReadProbed(parameter, instance, std::min(size, kMaxStoreValue + 1), what);
    if (value.size() < size) {
      if (value.size() <= kMaxStoreValue) return value;
      throw Failure(kExitFailure, what + " is too large", "zorctl shows at most 16 MiB");
    }
  }
}

std::string ReadAppData(uint32_t item) {
  const std::string what = Named("application data of item", item);
  uint32_t length = 0;
  CheckStoreStatus(ZOR_GetAppDataLen(item, &length), what);
  std::string value(std::min<size_t>(length, kMaxStoreValue), '\0');
  if (!value.empty()) CheckStoreStatus(ZOR_ReadAppData(item, value.data(), static_cast<uint32_t>(value.size())), what);
  return value;
}

messages::Values ReadObject(uint32_t objectClass, uint32_t instance) {
  ZOR_CFM_OBJ *read = nullptr;
  CheckStoreStatus(ZOR_DBGetObj(objectClass, instance, &read), NamedObject(objectClass, instance));
  const Object object(read);
  messages::Values values;
  for (const ZOR_CFM_VALUE *each = object->values; each != nullptr; each = each->next) {
    values.emplace_back(each->name, each->value);
  }
  return values;
}

void WriteParameter(uint32_t parameter, uint32_t instance, const std::string &value) {
  CheckStoreStatus(ZOR_DBSetPara(parameter, instance, value.data(), static_cast<uint32_t>(value.size())),
                   Named("parameter", parameter));
}

void WriteAppData(uint32_t item, const std::string &value) {
  CheckStoreStatus(ZOR_WriteAppDataFunc(item, value.data(), static_cast<uint32_t>(value.size())),
                   Named("application data of item", item));
}

void WriteObject(uint32_t objectClass, uint32_t instance, const messages::Values &values) {
  const std::string what = NamedObject(objectClass, instance);
  CheckStoreStatus(ZOR_DBSetObj(MakeObject(objectClass, instance, values, what).get()), what);
}

uint32_t AddObject(uint32_t objectClass, const messages::Values &values) {
  const std::string what = Named("object of class", objectClass);
  uint32_t instance = 0;
  CheckStoreStatus(ZOR_DBAddObj(objectClass, MakeObject(objectClass, 0, values, what).get(), &instance), what);
  return instance;
}

}  // namespace zor::ctl
