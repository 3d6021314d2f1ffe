// A connection from the tunnel begins with a message that says which board it is (ZOR_CONTROL_BOARD).
#ifndef MSGSVR_INTRODUCTION_H
#define MSGSVR_INTRODUCTION_H

#include "msgsvr/bus.h"
#include "msgsvr/frames.h"

namespace zor::msgsvr {

// Takes the first message of a board that is not yet known. A client that begins otherwise is cut off.
void IntroduceBoard(Bus &bus, Client &client, const Frame &frame);

}  // namespace zor::msgsvr

#endif
