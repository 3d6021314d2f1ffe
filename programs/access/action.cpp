#include "programs/access/action.h"

#include <zor/limits.h>
#include <zor/msg_wire.h>
#include <zor/notify_wire.h>

namespace zor::access {

using Names = VerbWords::Names;

const std::array<VerbWords, 9> kVerbWords = {{
    {Verb::kOwn, "own", false, "", Names::kRequired, 0, 0},
    {Verb::kServe, "serve", false, "", Names::kRequired, 0, 0},
    {Verb::kSend, "send", true, "to", Names::kRequired, 0, ZOR_MSG_TYPE_MASK},
    {Verb::kPublish, "publish", true, "", Names::kNone, ZOR_MSG_EVENT_FIRST + 1, ZOR_MSG_EVENT_LAST},
    {Verb::kSubscribe, "subscribe", true, "for", Names::kOptional, ZOR_MSG_EVENT_FIRST, ZOR_MSG_EVENT_LAST},
    {Verb::kPost, "post", false, "", Names::kRequired, 0, 0},
    {Verb::kControl, "control", true, "", Names::kNone, 0, UINT32_MAX},
    {Verb::kModule, "module", true, "", Names::kNone, ZOR_NOTIFY_MID_FIRST, ZOR_NOTIFY_MID_LAST},
    {Verb::kAll, "all", false, "", Names::kNone, 0, 0},
}};

}  // namespace zor::access
