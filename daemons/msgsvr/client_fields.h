// The format of a client's record. Tags are part of it: a new field gets a new tag, and no tag changes its meaning.
#ifndef MSGSVR_CLIENT_FIELDS_H
#define MSGSVR_CLIENT_FIELDS_H

#include "msgsvr/client_record.h"
#include "programs/fields.h"

namespace zor::msgsvr {

// Items that are written as they are in memory.
static_assert(sizeof(PendingRequests::Request) == 28);
static_assert(sizeof(Delivered) == 24);
static_assert(sizeof(Flows::Flow) == 16);
static_assert(sizeof(ZOR_CONTROL_GAP_TYPE) == 8);

template <typename Fields, daemon::OneOf<PatternRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.order);
  fields(2, record.list);
}

template <typename Fields, daemon::OneOf<BarrierRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.order);
  fields(2, record.name);
  fields(3, record.sequence);
  fields(4, record.sinceMs);
  fields(5, record.ordinal);
}

template <typename Fields, daemon::OneOf<EventGap::State> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.wanted, daemon::kOmitEmpty);
  fields(2, record.sinceUs, daemon::kOmitEmpty);
  fields(3, record.events, daemon::kOmitEmpty);
  fields(4, record.types, daemon::kOmitEmpty);
}

template <typename Fields, daemon::OneOf<Monitors::State> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.filter.name);
  fields(2, record.filter.directions);
  fields(3, record.filter.firstType);
  fields(4, record.filter.lastType);
  fields(5, record.missed);
}

template <typename Fields, daemon::OneOf<StandingRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.id);
  fields(2, record.name);
  fields(3, record.registration);
  fields(4, record.local);
  fields(5, record.uid);
  fields(6, record.pid);
  fields(7, record.since);
  fields(8, record.events, daemon::kOmitEmpty);
  fields(9, record.leaving, daemon::kOmitEmpty);
  fields(10, record.reportSeconds, daemon::kOmitEmpty);
  fields(11, record.lastReport, daemon::kOmitEmpty);
  fields(12, record.reportMissed, daemon::kOmitEmpty);
  fields(13, record.gap, daemon::kOmitEmpty);
  fields(14, record.patterns);
  fields(15, record.barrier);
  fields(16, record.monitor);
  fields(17, record.identity);
  fields(20, record.throughTunnel, daemon::kOmitEmpty);
  fields(21, record.board, daemon::kOmitEmpty);
  fields(22, record.boardAddress, daemon::kOmitEmpty);
  fields(23, record.otherOrder, daemon::kOmitEmpty);
}

template <typename Fields, daemon::OneOf<QueuedRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.bytes);
  fields(2, record.sent);
  fields(3, record.descriptor);
}

template <typename Fields, daemon::OneOf<PauseRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.reader);
  fields(2, record.until);
  fields(3, record.progressAt);
  fields(4, record.flushes);
  fields(5, record.unsent);
}

template <typename Fields, daemon::OneOf<Counters> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.in);
  fields(2, record.out);
  fields(3, record.dropped);
  fields(4, record.inBytes);
  fields(5, record.outBytes);
}

template <typename Fields, daemon::OneOf<Deliveries::File> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.record);
  fields(2, record.name);
}

template <typename Fields, daemon::OneOf<Deliveries::State> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.records);
  fields(2, record.files);
  fields(3, record.base);
}

template <typename Fields, daemon::OneOf<Refusals::State> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.total);
  fields(2, record.untold);
  fields(3, record.latestMs);
  fields(4, record.told);
  fields(5, record.toldMs);
  fields(6, record.inBurst);
  fields(7, record.burstTold);
}

template <typename Fields, daemon::OneOf<ClientRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.standing);
  fields(2, record.socket);
  fields(3, record.halfDescriptor);
  fields(4, record.partial);
  fields(5, record.queueBytes);
  fields(6, record.queue);
  fields(7, record.lastTarget);
  fields(8, record.counters);
  fields(9, record.pending);
  fields(10, record.deliveries);
  fields(11, record.flows.counts);
  fields(12, record.refusals);
  fields(13, record.deaf);
  fields(14, record.reset);
  fields(15, record.hungUp);
  fields(16, record.stalled);
  fields(17, record.flushes);
  fields(18, record.unsentWhenStalled);
  fields(19, record.pause);
  fields(20, record.registerBy);
  fields(21, record.backlog);
  fields(22, record.unreadBefore);
  fields(23, record.flows.rates);
}

}  // namespace zor::msgsvr

#endif
