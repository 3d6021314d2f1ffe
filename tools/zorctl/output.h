// Standard output of the tool. The library and its trace print on it too, in places that the tool cannot know; so the
// tool keeps a copy of the descriptor for itself and leads the original to /dev/null.
#ifndef ZORCTL_OUTPUT_H
#define ZORCTL_OUTPUT_H

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace zor::ctl {

// Ends the process quietly: the reader of the output has exited.
struct OutputClosed {};

// Takes over standard output. Call it once, before anything is printed.
void TakeOutput();

// Appends to the output; Flush writes. The bus flushes before it waits. Both throw OutputClosed when the reader has
// exited and Failure when the output cannot be written.
void Print(std::string_view text);
void Flush();

// One line of compact JSON. Text that is not UTF-8 is replaced, and control characters are escaped.
std::string JsonLine(const nlohmann::json &value);
std::string JsonLine(const nlohmann::ordered_json &value);
void PrintJson(const nlohmann::json &value);

// From now on the output is that descriptor, which the caller owns; what is pending goes there too.
void LeadOutputTo(int fd);
// The output's descriptor, for binary data. A verb that writes to it must not call Print.
int OutputDescriptor();
bool OutputIsTerminal();
// The columns of the terminal, or no limit if the output is not a terminal.
size_t OutputWidth();

// Whether the user of the terminal wants more than plain text (NO_COLOR).
bool WantsColour();
// The text, in bold type on a terminal whose user wants that.
std::string Bold(std::string_view text);

// A line on standard error that the next one replaces, for long work; nothing unless that is a terminal. An empty text
// removes the line.
void ShowProgress(std::string_view text);
// The columns that it has; 0 if nothing is shown.
size_t ProgressWidth();

}  // namespace zor::ctl

#endif
