#include <zor/msg_wire.h>

#include <nlohmann/json.hpp>
#include <string>

#include "zorctl/bus.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/record.h"
#include "zorctl/reply_fields.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

void CopyText(const std::string &text, const char *what, char (&field)[ZOR_MSG_RESTFUL_NAME_SIZE]) {
  if (text.size() >= sizeof field) {
    throw Failure(kExitUsage, std::string("the ") + what + " is too long", "the limit is 63 bytes");
  }
  text.copy(field, text.size());
}

class RestVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("PREFIX", prefix_, "The path that a daemon has registered").Required().Type("");
    options.Add("NAME", name_, "The procedure's name beneath it").Required().Type("");
    options.Add("DATA", data_, "The text for the procedure").Type("");
  }

  ExitCode Run(const Common &common) override {
    const std::string body = Body();
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    const Message reply = Request(bus, body, deadline);
    const std::string text(FieldText(reply.body.data(), reply.body.size()));
    if (common.json) {
      PrintJson({{"from", reply.source}, {"reply", TextJson(text)}});
    } else if (!text.empty()) {
      Print(EscapeLines(text) + "\n");
    }
    return kExitOk;
  }

 private:
  std::string Body() const {
    ZOR_MSG_RESTFUL_HEAD head = {};
    CopyText(prefix_, "prefix", head.prefix);
    CopyText(name_, "name", head.name);
    std::string body(RecordBytes(head));
    return body.append(data_).append(1, '\0');
  }

  Message Request(Bus &bus, const std::string &body, const Deadline &deadline) const try {
    return bus.Request({ZOR_MSG_RESTFUL_REQUEST, "", 0, body}, deadline);
  } catch (const Failure &failure) {
    const std::string path = Escape(prefix_ + "/" + name_);
    switch (failure.code) {
      case kExitNotFound:
        throw Failure(kExitNotFound, "no daemon has registered " + path, "zorctl list -v shows the patterns");
      case kExitTimeOver:
        throw Failure(kExitTimeOver, "no reply from " + path + " in time",
                      "daemons do not reply to requests that they refuse or to unknown names; or the daemon is stuck");
      default:
        throw;
    }
  }

  std::string prefix_;
  std::string name_;
  std::string data_;
};

}  // namespace

std::unique_ptr<Verb> MakeRestVerb() {
  return std::make_unique<RestVerb>();
}

}  // namespace zor::ctl
