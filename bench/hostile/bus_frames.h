// Messages that a hostile process sends to the message server or, through it, to a daemon: made from the real types and
// bodies, then damaged, or noise from the beginning.
#ifndef BENCH_HOSTILE_BUS_FRAMES_H
#define BENCH_HOSTILE_BUS_FRAMES_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "hostile/dice.h"

namespace zor::hostile {

class BusFrames {
 public:
  enum class To { kServer, kCms, kSyslog };

  // Body files are made below the root of the system.
  BusFrames(Dice &dice, std::string root, To to) : dice_(dice), root_(std::move(root)), to_(to) {}

  std::string Next();
  // One that asks for a name; well formed or not.
  std::string Registration(bool good);

 private:
  struct Form {
    uint32_t type;
    uint32_t weight;
    std::string (BusFrames::*body)();
  };
  static const Form kServerForms[];
  static const Form kCmsForms[];
  static const Form kSyslogForms[];

  std::span<const Form> Forms() const;
  std::string Message();
  std::string FileBody(const std::string &content);
  std::string_view Destination();
  std::string Finish(uint32_t type, std::string_view destination, uint32_t data, std::string body);

  std::string Nothing();
  std::string Any();
  std::string Name();
  std::string Field();
  std::string Patterns();
  std::string Restful();
  std::string Filter();
  std::string Trace();
  std::string Path();
  std::string Restore();
  std::string Device();
  std::string Record();
  std::string Query();
  std::string Servers();

  Dice &dice_;
  std::string root_;
  To to_;
};

}  // namespace zor::hostile

#endif
