// Properties of MQTT 5 packets, from and to the library.
#ifndef ZORBRIDGE_PROPERTIES_H
#define ZORBRIDGE_PROPERTIES_H

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zorbridge/publication.h"

namespace zor::bridge {

// Owns a list that is built.
class Properties {
 public:
  Properties() = default;
  Properties(const Properties &) = delete;
  Properties &operator=(const Properties &) = delete;
  ~Properties() { mosquitto_property_free_all(&list_); }

  Properties &Byte(int property, uint8_t value) { return Keep(mosquitto_property_add_byte(&list_, property, value)); }
  Properties &Number(int property, uint32_t value) {
    return Keep(mosquitto_property_add_int32(&list_, property, value));
  }
  Properties &Text(int property, const std::string &value) {
    return Keep(mosquitto_property_add_string(&list_, property, value.c_str()));
  }
  Properties &Binary(int property, const std::string &value);
  Properties &Pair(const std::string &name, const std::string &value) {
    return Keep(mosquitto_property_add_string_pair(&list_, MQTT_PROP_USER_PROPERTY, name.c_str(), value.c_str()));
  }
  // What all JSON that we send has.
  Properties &Json();

  // The library's first complaint, or MOSQ_ERR_SUCCESS.
  int status() const { return status_; }
  const mosquitto_property *get() const { return list_; }
  // The library owns them now.
  mosquitto_property *release() { return std::exchange(list_, nullptr); }

 private:
  Properties &Keep(int status) {
    if (status_ == MOSQ_ERR_SUCCESS) status_ = status;
    return *this;
  }

  mosquitto_property *list_ = nullptr;
  int status_ = MOSQ_ERR_SUCCESS;
};

// Empty or none when there is no such property.
std::string TextOf(const mosquitto_property *list, int property);
std::string BinaryOf(const mosquitto_property *list, int property);
std::optional<uint32_t> NumberOf(const mosquitto_property *list, int property);
std::optional<uint16_t> ShortOf(const mosquitto_property *list, int property);
std::vector<std::pair<std::string, std::string>> PairsOf(const mosquitto_property *list);

}  // namespace zor::bridge

#endif
