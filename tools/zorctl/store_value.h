// Values of the configuration store, through the platform's functions. Every function throws Failure with a text for
// the user.
#ifndef ZORCTL_STORE_VALUE_H
#define ZORCTL_STORE_VALUE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "zorctl/value.h"

namespace zor::ctl {

// The most that the tool reads or writes as one value.
constexpr size_t kMaxStoreValue = 16u << 20;

// Throws unless the status is ZOR_STORE_OK; the text is what was asked for.
void CheckStoreStatus(uint32_t status, const std::string &what);

std::string ReadParameter(uint32_t parameter, uint32_t instance);
std::string ReadAppData(uint32_t item);
messages::Values ReadObject(uint32_t objectClass, uint32_t instance);

void WriteParameter(uint32_t parameter, uint32_t instance, const std::string &value);
void WriteAppData(uint32_t item, const std::string &value);
// Sets these values of an instance and keeps the others.
void WriteObject(uint32_t objectClass, uint32_t instance, const messages::Values &values);
// Adds an instance and returns its number.
uint32_t AddObject(uint32_t objectClass, const messages::Values &values);

}  // namespace zor::ctl

#endif
