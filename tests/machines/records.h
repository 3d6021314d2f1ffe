// Bodies whose integers are in the byte order of the machine that wrote them. Nothing on the way converts those: a
// daemon that talks with machines of the other order does it itself, as here.
#ifndef MACHINES_RECORDS_H
#define MACHINES_RECORDS_H

#include <bit>
#include <cstdint>
#include <string>

namespace zor::test {

// Of this machine; requests name that of their sender in the data word.
constexpr std::uint32_t kByteOrder = std::endian::native == std::endian::little ? 1 : 2;

// The reply to a management message: its sub-type and the kind of each item increased, in the order of the request.
// Aborts when a message of the other order is taken for one of this machine's.
std::string AnswerManagement(std::string request, bool isReversed);
// Whether the peer answers one as it should.
bool IsManagementAnswered(const char *peer, std::uint32_t timeoutMs);

// The reply to a generated record: each number increased, in the order of the request. Aborts for any other record.
std::string AnswerRecord(const std::string &request, bool isReversed);
std::string MakeRecord();
// Whether it is the reply to that.
bool IsRecordAnswered(const std::string &reply);

// Requests to the servers, in the order of this machine or reversed. A record for the log, with a user's name, whose
// sender waits until it is kept.
std::string MakeLogRecord(const std::string &user, bool isReversed);
// Restores the configuration that a user has saved.
std::string MakeRestoration(std::uint32_t user, bool isReversed);
// Adds a device to the KIVA list, with its state and what it has loaded.
std::string MakeDevice(const std::string &mac, std::uint32_t state, std::uint32_t loaded, bool isReversed);

// A generated record as JSON, which has no byte order.
std::string AnswerJson(const std::string &request);
std::string MakeJson();
bool IsJsonAnswered(const std::string &reply);

}  // namespace zor::test

#endif
