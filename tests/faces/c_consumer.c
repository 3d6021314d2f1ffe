/* Holds the conversations as a consumer, in plain C: c_consumer NAME PROVIDER. */
#include <cjson/cJSON.h>
#include <poll.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>
#include <zor/control_wire.h>
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/msg_rejoin.h>
#include <zor/uv.h>

#include "conversation.h"

enum { WAIT_MS = 30000 };

static const char *provider;

static bool Fails(const char *name, const char *why) {
  printf("failed %s: %s\n", name, why);
  return false;
}

/* The loop runs until the condition holds. */
static bool RunFor(time_t seconds, bool (*done)(void)) {
  const time_t end = time(NULL) + seconds;
  while (!done() && time(NULL) < end) ZOR_UV_LoopRun(NULL, 0);
  return done();
}

static bool RunUntil(bool (*done)(void)) {
  return RunFor(WAIT_MS / 1000, done);
}

static void Wake(void *data) {
  (void)data;
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

static uint32_t Ask(uint32_t type, uint32_t word, const void *body, uint32_t length, uint32_t timeoutMs,
                    ZOR_MSG_HEAD **reply) {
  char *data = ZOR_MSG_GetMsgBlock(length);
  if (data == NULL) return ZOR_E_NO_MEMORY;
  if (length > 0) memcpy(data, body, length);
  ZOR_MSG_SetMsgProfile(data, provider, type, length);
  ZOR_MSG_HEAD *request = ZOR_MSG_GetMsgHead(data);
  request->data = word;
  const uint32_t status = ZOR_MSG_SendAndRecvWithAppName(request, reply, timeoutMs);
  free(request);
  return status;
}

static cJSON *Json(ZOR_MSG_HEAD *reply) {
  const char *body = ZOR_MSG_GetMsgByHead(reply);
  return body == NULL ? NULL : cJSON_ParseWithLength(body, reply->bodyLength);
}

static bool Request(void) {
  ZOR_MSG_HEAD *reply = NULL;
  if (Ask(TALK_STATE, 0, NULL, 0, WAIT_MS, &reply) != ZOR_OK) return Fails("request", "no reply");
  cJSON *state = Json(reply);
  const double actual = cJSON_GetNumberValue(cJSON_GetObjectItem(state, "actual"));
  const char *label = cJSON_GetStringValue(cJSON_GetObjectItem(state, "label"));
  const bool right = reply->data == 0 && actual == TALK_ACTUAL && label != NULL && strcmp(label, TALK_LABEL) == 0;
  cJSON_Delete(state);
  free(reply);
  return right || Fails("request", "another state");
}

static bool Word(void) {
  uint32_t word = 0;
  return (ZOR_MSG_SendAndRecvMsgData(provider, TALK_WORD, 6, WAIT_MS, &word) == ZOR_OK && word == 7) ||
         Fails("word", "no or another reply");
}

static char order[8];

static void OnReply(ZOR_MSG_HEAD *reply, uint32_t status, void *letter) {
  const uint32_t wanted = *(const char *)letter == 'l' ? 42 : 11;
  if (status == ZOR_OK && reply->data == wanted) strncat(order, letter, 1);
  Wake(NULL);
}

static bool Both(void) {
  return strlen(order) == 2;
}

static bool Deferred(void) {
  static char later[] = "l", word[] = "w";
  ZOR_MSG_HEAD request;
  ZOR_MSG_SimpleBuilder(&request, provider, TALK_LATER, 500);
  ZOR_MSG_AsyncSendAndRecv(&request, OnReply, WAIT_MS, later);
  ZOR_MSG_SimpleBuilder(&request, provider, TALK_WORD, 10);
  ZOR_MSG_AsyncSendAndRecv(&request, OnReply, WAIT_MS, word);
  return (RunUntil(Both) && strcmp(order, "wl") == 0) || Fails("deferred", "the replies came otherwise");
}

static bool Error(void) {
  ZOR_MSG_HEAD *reply = NULL;
  if (Ask(TALK_ERROR, 0, NULL, 0, WAIT_MS, &reply) != ZOR_OK) return Fails("error", "no reply");
  cJSON *body = Json(reply);
  const char *why = cJSON_GetStringValue(cJSON_GetObjectItem(body, "error"));
  const bool right = reply->data == ZOR_E_IO && why != NULL && strcmp(why, TALK_WHY) == 0;
  cJSON_Delete(body);
  free(reply);
  return right || Fails("error", "another reply");
}

static bool Timeout(void) {
  ZOR_MSG_HEAD *reply = NULL;
  const uint32_t status = Ask(TALK_SILENT, 0, NULL, 0, 300, &reply);
  free(reply);
  return (status == ZOR_E_TIMEOUT && Word()) || Fails("timeout", "not told");
}

static bool Absent(void) {
  uint32_t word = 0;
  return ZOR_MSG_SendAndRecvMsgData("nobody", TALK_WORD, 0, WAIT_MS, &word) == ZOR_E_PEER_GONE ||
         Fails("absent", "not told");
}

static bool Large(void) {
  unsigned char *bytes = malloc(TALK_LARGE);
  for (uint32_t i = 0; bytes != NULL && i < TALK_LARGE; ++i) bytes[i] = (unsigned char)(i * 7 % 251);
  ZOR_MSG_HEAD *reply = NULL;
  const uint32_t status = Ask(TALK_ECHO, 0, bytes, TALK_LARGE, WAIT_MS, &reply);
  const bool same = status == ZOR_OK && bytes != NULL && reply->bodyLength == TALK_LARGE &&
                    memcmp(ZOR_MSG_GetMsgByHead(reply), bytes, TALK_LARGE) == 0;
  free(reply);
  free(bytes);
  return same || Fails("large", "not the same");
}

static double note;
static uint32_t bursts, missed, gaps;

static uint32_t OnEvent(uint32_t type, const char *body, uint32_t length) {
  (void)type;
  cJSON *event = cJSON_ParseWithLength(body, length);
  const char *name = cJSON_GetStringValue(cJSON_GetObjectItem(event, "EventType"));
  const char *module = cJSON_GetStringValue(cJSON_GetObjectItem(event, "Module"));
  if (name != NULL && strcmp(name, "burst") == 0) ++bursts;
  if (name != NULL && strcmp(name, "note") == 0 && module != NULL && strcmp(module, TALK_MODULE) == 0) {
    note = cJSON_GetNumberValue(cJSON_GetObjectItem(cJSON_GetObjectItem(event, "Payload"), "n"));
  }
  cJSON_Delete(event);
  Wake(NULL);
  return ZOR_OK;
}

static void OnGap(ZOR_MSG_HEAD *msg) {
  ZOR_CONTROL_GAP gap;
  if (msg->bodyLength < sizeof gap) return;
  memcpy(&gap, ZOR_MSG_GetMsgByHead(msg), sizeof gap);
  missed += gap.events;
  ++gaps;
  Wake(NULL);
}

static bool Noted(void) {
  return note == 17;
}

static bool GetsEvent(void) {
  note = 0;
  ZOR_MSG_SendSimpleMsg(provider, TALK_NOTE, 17);
  return RunUntil(Noted);
}

static bool Event(void) {
  const uint32_t type = ZOR_EVT_GetMsgTypeByEventModuleName(TALK_MODULE);
  ZOR_MSG_SubscribeEventForOtherApp(type, g_stMsgCtx.appName);
  ZOR_EVT_SubscribeSingelEventCallBack(type, OnEvent);
  return GetsEvent() || Fails("event", "none came");
}

static bool Descriptor(void) {
  int ends[2];
  if (pipe(ends) != 0) return Fails("descriptor", "no pipe");
  ZOR_MSG_SendSimpleMsg(provider, TALK_DESCRIPTOR, 0);
  ZOR_MSG_SendFd(ends[1]);
  close(ends[1]);
  char text[64] = "";
  struct pollfd readable = {ends[0], POLLIN, 0};
  const bool came = poll(&readable, 1, WAIT_MS) == 1 && read(ends[0], text, sizeof text - 1) > 0;
  close(ends[0]);
  return (came && strcmp(text, TALK_HELLO) == 0) || Fails("descriptor", "nothing was written");
}

enum { BURST = 30000 };

static uint32_t notes;

/* A gap is told before the next event, so there have to be some behind the last one. */
static void AskForNote(void *data) {
  (void)data;
  ZOR_MSG_SendSimpleMsg(provider, TALK_NOTE, 17);
  ++notes;
}

static bool AllCounted(void) {
  return bursts + missed >= BURST;
}

/* Who does not read for long enough misses events, and is told how many. */
static bool Gap(void) {
  uint32_t word = 1;
  ZOR_MSG_RegMsgProc(ZOR_MSG_CONTROL_GAP, OnGap, 0, NULL);
  if (ZOR_MSG_SendAndRecvMsgData(NULL, ZOR_MSG_CONTROL_GAPS, 1, WAIT_MS, &word) != ZOR_OK || word != ZOR_CONTROL_OK) {
    return Fails("gap", "refused");
  }
  for (unsigned seconds = 1; gaps == 0 && seconds <= 16; seconds *= 2) {
    bursts = missed = 0;
    ZOR_MSG_SendSimpleMsg(provider, TALK_BURST, BURST);
    sleep(seconds);
    UvTimer *timer = ZOR_UTIL_TimerAdd(200, 0, AskForNote, NULL);
    const bool counted = RunFor(120, AllCounted); /* some providers publish slowly */
    ZOR_UTIL_TimerDel(timer);
    /* a note may be among what was missed, also one of an earlier round */
    if (!counted || bursts + missed > BURST + notes) return Fails("gap", "events and gaps do not add up");
  }
  return gaps > 0 || Fails("gap", "nothing was missed");
}

static bool wasLost, isBack;

static void OnLink(uint32_t event, void *data) {
  (void)data;
  if (event == ZOR_MSG_LINK_LOST) wasLost = true;
  if (event == ZOR_MSG_LINK_REJOINED) isBack = wasLost;
  Wake(NULL);
}

static bool Back(void) {
  return isBack;
}

/* The provider joins again when it can, so the first requests may find nobody. */
static bool Lost(void) {
  puts("kill the server");
  if (!RunUntil(Back)) return Fails("lost", "not told, or not on the bus again");
  uint32_t word = 0;
  const time_t end = time(NULL) + WAIT_MS / 1000;
  while (ZOR_MSG_SendAndRecvMsgData(provider, TALK_WORD, 6, 1000, &word) != ZOR_OK && time(NULL) < end) usleep(50000);
  if (word != 7) return Fails("lost", "the provider does not reply");
  return GetsEvent() || Fails("lost", "no event without another subscription");
}

static const struct {
  const char *name;
  bool (*hold)(void);
} kConversations[] = {{"request", Request},       {"word", Word},     {"deferred", Deferred}, {"error", Error},
                      {"timeout", Timeout},       {"absent", Absent}, {"large", Large},       {"event", Event},
                      {"descriptor", Descriptor}, {"gap", Gap},       {"lost", Lost}};

int main(int argc, char **argv) {
  if (argc != 3) return 2;
  setvbuf(stdout, NULL, _IOLBF, 0);
  provider = argv[2];
  if (ZOR_MSG_Init(argv[1]) != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_SetLinkProc(OnLink, NULL);
  ZOR_MSG_EnableRejoin(NULL);
  ZOR_UTIL_TimerAdd(100, 0, Wake, NULL); /* so that a deadline is noticed */
  int status = 0;
  for (size_t i = 0; i < sizeof kConversations / sizeof kConversations[0]; ++i) {
    if (kConversations[i].hold()) {
      printf("ok %s\n", kConversations[i].name);
    } else {
      status = 1;
    }
  }
  uint32_t word = 1;
  ZOR_MSG_SendAndRecvMsgData(provider, ZOR_MSG_SAFE_EXIT, 0, WAIT_MS, &word);
  ZOR_MSG_Destroy();
  puts("done");
  return status;
}
