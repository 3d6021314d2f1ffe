#include "zorbridge/properties.h"

#include "common/malloc_ptr.h"

namespace zor::bridge {

Properties &Properties::Binary(int property, const std::string &value) {
  if (value.size() > UINT16_MAX) return Keep(MOSQ_ERR_INVAL);
  return Keep(mosquitto_property_add_binary(&list_, property, value.data(), static_cast<uint16_t>(value.size())));
}

Properties &Properties::Json() {
  return Byte(MQTT_PROP_PAYLOAD_FORMAT_INDICATOR, 1).Text(MQTT_PROP_CONTENT_TYPE, "application/json");
}

std::string TextOf(const mosquitto_property *list, int property) {
  char *text = nullptr;
  mosquitto_property_read_string(list, property, &text, false);
  const MallocPtr<char> owner(text);
  return text == nullptr ? std::string() : std::string(text);
}

std::string BinaryOf(const mosquitto_property *list, int property) {
  void *bytes = nullptr;
  uint16_t length = 0;
  mosquitto_property_read_binary(list, property, &bytes, &length, false);
  const MallocPtr<void> owner(bytes);
  return bytes == nullptr ? std::string() : std::string(static_cast<const char *>(bytes), length);
}

std::optional<uint32_t> NumberOf(const mosquitto_property *list, int property) {
  uint32_t value = 0;
  if (mosquitto_property_read_int32(list, property, &value, false) == nullptr) return std::nullopt;
  return value;
}

std::optional<uint16_t> ShortOf(const mosquitto_property *list, int property) {
  uint16_t value = 0;
  if (mosquitto_property_read_int16(list, property, &value, false) == nullptr) return std::nullopt;
  return value;
}

std::vector<std::pair<std::string, std::string>> PairsOf(const mosquitto_property *list) {
  std::vector<std::pair<std::string, std::string>> pairs;
  char *name = nullptr;
  char *value = nullptr;
  const mosquitto_property *at =
      mosquitto_property_read_string_pair(list, MQTT_PROP_USER_PROPERTY, &name, &value, false);
  while (at != nullptr) {
    const MallocPtr<char> nameOwner(name), valueOwner(value);
    pairs.emplace_back(name, value);
    name = value = nullptr;
    at = mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, true);
  }
  return pairs;
}

}  // namespace zor::bridge
