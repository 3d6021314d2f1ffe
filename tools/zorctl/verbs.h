// The function that makes each verb, for their table.
#ifndef ZORCTL_VERBS_H
#define ZORCTL_VERBS_H

#include "zorctl/verb.h"

namespace zor::ctl {

std::unique_ptr<Verb> MakeAccessVerb();
std::unique_ptr<Verb> MakeBundleVerb();
std::unique_ptr<Verb> MakeCallVerb();
std::unique_ptr<Verb> MakeCompleteVerb();
std::unique_ptr<Verb> MakeConfigVerb();
std::unique_ptr<Verb> MakeExitVerb();
std::unique_ptr<Verb> MakeGatewaysVerb();
std::unique_ptr<Verb> MakeGraphVerb();
std::unique_ptr<Verb> MakeHelpVerb();
std::unique_ptr<Verb> MakeIntrospectVerb();
std::unique_ptr<Verb> MakeListVerb();
std::unique_ptr<Verb> MakeListenVerb();
std::unique_ptr<Verb> MakeLogVerb();
std::unique_ptr<Verb> MakeMetricsVerb();
std::unique_ptr<Verb> MakeMlogVerb();
std::unique_ptr<Verb> MakeMonitorVerb();
std::unique_ptr<Verb> MakeNotifyVerb();
std::unique_ptr<Verb> MakePublishVerb();
std::unique_ptr<Verb> MakeRecorderVerb();
std::unique_ptr<Verb> MakeReplayVerb();
std::unique_ptr<Verb> MakeRestVerb();
std::unique_ptr<Verb> MakeSendVerb();
std::unique_ptr<Verb> MakeServeVerb();
std::unique_ptr<Verb> MakeServerVerb();
std::unique_ptr<Verb> MakeTopVerb();
std::unique_ptr<Verb> MakeTraceVerb();
std::unique_ptr<Verb> MakeTypesVerb();
std::unique_ptr<Verb> MakeWaitVerb();
std::unique_ptr<Verb> MakeWhyVerb();

}  // namespace zor::ctl

#endif
