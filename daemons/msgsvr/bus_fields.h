// The format of the bus's record. Tags are part of it: a new field gets a new tag, and no tag changes its meaning.
#ifndef MSGSVR_BUS_FIELDS_H
#define MSGSVR_BUS_FIELDS_H

#include "msgsvr/bus_record.h"
#include "msgsvr/client_fields.h"

namespace zor::msgsvr {

template <typename Fields, daemon::OneOf<NamedSubscriptionRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.name);
  fields(2, record.events);
}

template <typename Fields, daemon::OneOf<LossRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.name);
  fields(2, record.messages);
}

template <typename Fields, daemon::OneOf<StandingBusRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.started);
  fields(2, record.lastId);
  fields(3, record.subscriptions);
  fields(4, record.posts);
  fields(5, record.losses);
}

template <typename Fields, daemon::OneOf<Deadlocks::Member> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.client);
  fields(2, record.ordinal);
}

template <typename Fields, daemon::OneOf<Deadlocks::Circle> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.members);
  fields(2, record.named);
  fields(3, record.pauseMs);
  fields(4, record.lookedMs);
}

template <typename Fields, daemon::OneOf<Storms::Storm> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.ids);
  fields(2, record.type);
  fields(3, record.sinceMs);
  fields(4, record.named);
}

template <typename Fields, daemon::OneOf<TrafficWatch::State> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.lastMs);
  fields(2, record.lookedAt);
  fields(3, record.unsettled);
  fields(4, record.circles);
  fields(5, record.storms);
}

template <typename Fields, daemon::OneOf<BusRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.standing);
  fields(2, record.counters);
  fields(3, record.watch);
}

}  // namespace zor::msgsvr

#endif
