// The members of a chaos run, each in a process of its own. They never return.
#ifndef BENCH_CHAOS_MEMBER_H
#define BENCH_CHAOS_MEMBER_H

#include "chaos/account.h"

namespace zor::bench {

// Sends messages of all kinds to the other workers, publishes events, and notes what arrives.
void RunWorker(Account &account, uint32_t index, uint32_t burst);

// Replies to requests.
void RunProvider();

// Sends requests to the provider, one after the other, with a pause between.
void RunRequester(Account &account, uint32_t index, uint32_t pauseMs);

}  // namespace zor::bench

#endif
