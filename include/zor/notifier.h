/*
 * Notifier chains: in-process lists of callbacks that run one after another, by priority. The main use is the start-up
 * of a daemon's modules.
 *
 * Conventions: a chain and its nodes belong to one thread, normally the loop's. A status is 0 or an error of
 * zor/status.h; callbacks return 0 for success and any other value for failure.
 */
#ifndef ZOR_NOTIFIER_H
#define ZOR_NOTIFIER_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* A callback: gets the chain's context and the data it was registered with. */
typedef uint32_t (*ZOR_NOTIFIER_CALLBACK)(uintptr_t context, uintptr_t data);

/* One registered callback; its address is the registration handle. Owned by the chain. */
typedef struct ZOR_NOTIFIER_NODE {
  struct ZOR_NOTIFIER_NODE *next;
  ZOR_NOTIFIER_CALLBACK callback;
  uint32_t priority;
  uintptr_t data;
} ZOR_NOTIFIER_NODE;

/* A chain: made by ZOR_UTIL_NotifierInit, owned by its caller, who may free it once all nodes are unregistered. */
typedef struct ZOR_NOTIFIER_CHAIN {
  uintptr_t reserved;
  uintptr_t context;
  ZOR_NOTIFIER_NODE *nodes;
} ZOR_NOTIFIER_CHAIN;

/* What a run may call around each callback; every member may be null. */
typedef struct ZOR_NOTIFIER_HOOKS {
  void (*before)(uintptr_t context, ZOR_NOTIFIER_NODE *node);
  void (*after)(uintptr_t context, ZOR_NOTIFIER_NODE *node, uint32_t status);
  uint32_t (*filter)(uintptr_t context, ZOR_NOTIFIER_NODE *node, uintptr_t filterArgument); /* 0 skips the node */
  uintptr_t filterArgument;
} ZOR_NOTIFIER_HOOKS;

/* Makes an empty chain. Returns 0; ZOR_E_ARGUMENT for a null out pointer; ZOR_E_NO_MEMORY, with *chain null. */
ZOR_API uint32_t ZOR_UTIL_NotifierInit(uintptr_t context, ZOR_NOTIFIER_CHAIN **chain);

/* Registers a callback for ascending priority: before the first node of a greater priority, else at the tail, so equal
   priorities run in the order of registration. handle may be null; when given it is cleared first and receives the
   node. Returns 0; ZOR_E_ARGUMENT for a null chain or callback; ZOR_E_NO_MEMORY. */
ZOR_API uint32_t ZOR_UTIL_NotifierRegister(ZOR_NOTIFIER_CHAIN *chain, ZOR_NOTIFIER_CALLBACK callback, uint32_t priority,
                                           uintptr_t data, ZOR_NOTIFIER_NODE **handle);

/* The same for descending priority: before the first node of a lower or equal one, so equal priorities run in the
   reverse order of registration. A chain with both kinds of registration is in neither order. */
ZOR_API uint32_t ZOR_UTIL_NotifierReverseRegister(ZOR_NOTIFIER_CHAIN *chain, ZOR_NOTIFIER_CALLBACK callback,
                                                  uint32_t priority, uintptr_t data, ZOR_NOTIFIER_NODE **handle);

/* Removes a node and frees it; a callback may remove its own or any other. Returns 0, or 1 with nothing removed for a
   null argument or a handle that is not on the chain. */
ZOR_API uint32_t ZOR_UTIL_NotifierUnRegister(ZOR_NOTIFIER_CHAIN *chain, ZOR_NOTIFIER_NODE *handle);

/* Runs the chain. stopOnError nonzero: the first status that is not 0 ends the run. hooks may be null. Returns the
   status of the last callback run, 0 when none ran; ZOR_E_ARGUMENT for a null chain. Each callback is traced before and
   after under the module "notify" at level 8. */
ZOR_API uint32_t ZOR_UTIL_NotifierDoNotifyEx(ZOR_NOTIFIER_CHAIN *chain, uint32_t stopOnError,
                                             const ZOR_NOTIFIER_HOOKS *hooks);

/* The same; with bootTrack 1 each callback's start and end also go to "/var/zor_boot_track.log" with the monotonic
   time. */
ZOR_API uint32_t ZOR_UTIL_NotifierDoNotifyExWithCmsInit(ZOR_NOTIFIER_CHAIN *chain, uint32_t stopOnError,
                                                        const ZOR_NOTIFIER_HOOKS *hooks, uint32_t bootTrack);

/* ZOR_UTIL_NotifierDoNotifyEx without hooks, traced as a whole under the given name. unused is ignored. */
ZOR_API uint32_t ZOR_UTIL_NotifierDoNotifyWrap(const char *name, uintptr_t unused, ZOR_NOTIFIER_CHAIN *chain,
                                               uint32_t stopOnError);

ZOR_END_DECLS

#endif
