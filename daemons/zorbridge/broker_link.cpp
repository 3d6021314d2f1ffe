#include "zorbridge/broker_link.h"

#include "zorbridge/line.h"

namespace zor::bridge {

BrokerLink::BrokerLink(Options options, LinkListener &listener, daemon::ProblemLog &log)
    : line_(std::make_unique<Line>(std::move(options), listener, log)) {}

BrokerLink::~BrokerLink() = default;

bool BrokerLink::Start() {
  return line_->Start();
}

bool BrokerLink::Publish(const Publication &publication) {
  return line_->Publish(publication);
}

void BrokerLink::Stop(const Publication &farewell) {
  line_->Stop(farewell);
}

bool BrokerLink::connected() const {
  return line_->connected();
}

const BrokerLink::Figures &BrokerLink::figures() const {
  return line_->figures();
}

}  // namespace zor::bridge
