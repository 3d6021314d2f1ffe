// For each line "MESSAGE DATA -HEX" decodes and encodes that message, and prints "DATA -HEX VALUES" or "invalid".
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include "thermo.h"
#include "thermo_old.h"
#include "zor.h"

static void Require(bool holds, const char *what) {
  if (holds) return;
  fprintf(stderr, "broken: %s\n", what);
  abort();
}

static void PrintHex(const void *bytes, size_t length) {
  size_t i;
  printf(" -");
  for (i = 0; i < length; ++i) printf("%02x", ((const unsigned char *)bytes)[i]);
}

static void PrintView(struct zor_gen_view view) {
  const size_t length = zor_gen_length(view);
  char *plain = (char *)malloc(length + 1);
  Require(plain != NULL && zor_gen_copy(view, plain, length) == length, "the length is that of the content");
  Require(zor_gen_equals(view, plain, length), "the copy is the content");
  PrintHex(plain, length);
  free(plain);
}

#define NONE(message) (void)(message)
#define EVERY(m)                                                                                               \
  printf(" %u %u %" PRIu32 " %" PRIu64 " %d %d %" PRId32 " %" PRId64 " %.17g %d", (m)->u8, (m)->u16, (m)->u32, \
         (m)->u64, (m)->i8, (m)->i16, (m)->i32, (m)->i64, (m)->class_, (m)->lambda);                           \
  PrintView((m)->daemon), PrintView((m)->text), PrintView((m)->text8), PrintView((m)->bytes4),                 \
      PrintView((m)->rest_of_it)

// Into room of exactly the size that it takes, so that sanitizers see a byte too many.
#define PASS(name, values)                                                                      \
  static bool Pass_##name(uint32_t data, const void *body, size_t length) {                     \
    struct name message;                                                                        \
    size_t size;                                                                                \
    void *made;                                                                                 \
    if (name##_decode(&message, data, body, length) != ZOR_OK) return false;                    \
    size = name##_encode(&message, NULL, 0);                                                    \
    made = malloc(size > 0 ? size : 1);                                                         \
    Require(made != NULL && name##_encode(&message, made, size) == size, "counted as written"); \
    Require(size == 0 || name##_encode(&message, made, size - 1) == 0, "too small is refused"); \
    printf("%" PRIu32, name##_data(&message));                                                  \
    PrintHex(made, size);                                                                       \
    values(&message);                                                                           \
    printf("\n");                                                                               \
    free(made);                                                                                 \
    return true;                                                                                \
  }

PASS(thermo_GetState_request, NONE)
PASS(thermo_GetState_reply, NONE)
PASS(thermo_GetStateJson_request, NONE)
PASS(thermo_GetStateJson_reply, NONE)
PASS(thermo_SetTarget_request, NONE)
PASS(thermo_SetTarget_reply, NONE)
PASS(thermo_Reached_message, NONE)
PASS(thermo_Every_message, EVERY)
PASS(thermo_EveryJson_message, EVERY)
PASS(thermo_Any_message, NONE)
PASS(thermo_Items_message, NONE)
PASS(thermo_old_GetState_reply, NONE)
PASS(thermo_old_GetStateJson_reply, NONE)
PASS(thermo_old_Reached_message, NONE)

#define ROW(name) \
  { #name, Pass_##name }
static const struct {
  const char *name;
  bool (*pass)(uint32_t data, const void *body, size_t length);
} kRows[] = {ROW(thermo_GetState_request),       ROW(thermo_GetState_reply),
             ROW(thermo_GetStateJson_request),   ROW(thermo_GetStateJson_reply),
             ROW(thermo_SetTarget_request),      ROW(thermo_SetTarget_reply),
             ROW(thermo_Reached_message),        ROW(thermo_Every_message),
             ROW(thermo_EveryJson_message),      ROW(thermo_Any_message),
             ROW(thermo_Items_message),          ROW(thermo_old_GetState_reply),
             ROW(thermo_old_GetStateJson_reply), ROW(thermo_old_Reached_message)};

static void RefuseWhatNoBodyCarries(void) {
  struct thermo_GetState_reply record;
  struct thermo_GetStateJson_reply json;
  thermo_GetState_reply_init(&record);
  record.room = zor_gen_text("sixteen letters!");
  Require(thermo_GetState_reply_encode(&record, NULL, 0) == 0, "a text that is too long");
  record.room = zor_gen_bytes("a\0b", 3);
  Require(thermo_GetState_reply_encode(&record, NULL, 0) == 0, "a NUL in a text");
  thermo_GetStateJson_reply_init(&json);
  json.actual = strtod("inf", NULL);
  Require(thermo_GetStateJson_reply_encode(&json, NULL, 0) == 0, "an infinite number");
  json.actual = 0;
  json.label = zor_gen_text("\xc0\x80");
  Require(thermo_GetStateJson_reply_encode(&json, NULL, 0) == 0, "a text that is not UTF-8");
}

int main(void) {
  static char name[64], hex[1 << 16];
  uint32_t data;
  RefuseWhatNoBodyCarries();
  while (scanf("%63s %" SCNu32 " %65535s", name, &data, hex) == 3) {
    const struct zor_gen_view digits = zor_gen_view_of(hex + 1, strlen(hex) - 1, ZOR_GEN_HEX);
    const size_t length = zor_gen_length(digits);
    char *body = (char *)malloc(length > 0 ? length : 1);
    size_t i = 0;
    while (i < sizeof kRows / sizeof kRows[0] && strcmp(kRows[i].name, name) != 0) ++i;
    Require(body != NULL && i < sizeof kRows / sizeof kRows[0], "a known message");
    zor_gen_copy(digits, body, length);
    if (!kRows[i].pass(data, body, length)) printf("invalid\n");
    free(body);
  }
  return 0;
}
