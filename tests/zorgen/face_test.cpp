// Generated types through the C++ face of the bus.
#include <gtest/gtest.h>
#include <zor/zor.hpp>

#include <optional>

#include "support/child.h"
#include "support/temp_root.h"
#include "thermo_face.hpp"

namespace zor {
namespace {

using test::Child;

TEST(GeneratedTypes, TravelAsRequestsRepliesAndEvents) {
  const test::TempRoot root;
  Child server = Child::Program({MSGSVR_PROGRAM});
  ASSERT_TRUE(server.WaitForOutput("msgsvr: listening"));
  const Child provider = Child::Function([] {
    Bus bus("thermo");
    bus.module("thermo", thermo::modules::thermo);
    bus.serve<thermo::GetState>([] {
      thermo::GetStateReply state;
      state.actual = 294.5;
      state.label = "hall";
      return state;
    });
    bus.serve<thermo::SetTarget>([&](const thermo::SetTargetRequest &request) {
      thermo::ReachedMessage event;
      event.actual = request.target;
      bus.publish<thermo::Reached>(event);
      thermo::SetTargetReply reply;
      reply.reached = true;
      return reply;
    });
    return bus.run();
  });
  Bus bus("tester");
  bus.module("thermo", thermo::modules::thermo);
  ASSERT_TRUE(test::WaitUntil([&] { return bool{bus.try_call(thermo::GetState::kTo, ZOR_MSG_INTROSPECT)}; }));
  const auto state = bus.call<thermo::GetState>("thermo", {});
  EXPECT_EQ(state.actual, 294.5);
  EXPECT_EQ(state.label, "hall");
  EXPECT_EQ(state.note, "none");

  std::optional<double> reached;
  const Scoped subscription = bus.on<thermo::Reached>([&](const thermo::ReachedMessage &event) {
    reached = event.actual;
    bus.stop();
  });
  thermo::SetTargetRequest request;
  request.target = -20;
  EXPECT_TRUE(bus.call<thermo::SetTarget>("thermo", request).reached);
  const Scoped limit = bus.after(test::kPatience, [&] { bus.stop(1); });
  EXPECT_EQ(bus.run(), 0) << "no event";
  EXPECT_EQ(reached, -20);
}

}  // namespace
}  // namespace zor
