/*
 * The data word of the messages that zorgen makes code for, when it carries a field. Each function is false if the word
 * is beyond the field's type.
 */
#ifndef ZOR_GEN_DATA_H
#define ZOR_GEN_DATA_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

static inline bool zor_gen_data_u8(uint32_t data, uint8_t *value) {
  *value = (uint8_t)data;
  return data <= UINT8_MAX;
}

static inline bool zor_gen_data_u16(uint32_t data, uint16_t *value) {
  *value = (uint16_t)data;
  return data <= UINT16_MAX;
}

static inline bool zor_gen_data_u32(uint32_t data, uint32_t *value) {
  *value = data;
  return true;
}

/* Negative numbers are in two's complement. */
static inline bool zor_gen_data_i32(uint32_t data, int32_t *value) {
  *value = data <= INT32_MAX ? (int32_t)data : -(int32_t)~data - 1;
  return true;
}

static inline bool zor_gen_data_i16(uint32_t data, int16_t *value) {
  int32_t wide;
  zor_gen_data_i32(data, &wide);
  *value = (int16_t)wide;
  return wide >= INT16_MIN && wide <= INT16_MAX;
}

static inline bool zor_gen_data_i8(uint32_t data, int8_t *value) {
  int32_t wide;
  zor_gen_data_i32(data, &wide);
  *value = (int8_t)wide;
  return wide >= INT8_MIN && wide <= INT8_MAX;
}

static inline bool zor_gen_data_bool(uint32_t data, bool *value) {
  *value = data != 0;
  return true;
}

#ifdef __cplusplus
}
#endif

#endif
