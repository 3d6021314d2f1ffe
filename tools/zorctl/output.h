// Standard output of the tool. The library and its trace print on it too, in places that the tool cannot know, so the
// tool keeps the descriptor for itself and gives the library one that leads nowhere.
#ifndef ZORCTL_OUTPUT_H
#define ZORCTL_OUTPUT_H

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace zor::ctl {

// Ends the process quietly: nobody reads the output any more.
struct OutputClosed {};

// Takes standard output over. Call it once, before anything prints.
void TakeOutput();

// Appends to the output; Flush writes. The bus flushes before it waits. Both throw OutputClosed when the reader has
// gone and Failure when the output cannot be written.
void Print(std::string_view text);
void Flush();

// One line of compact JSON. Text that is not UTF-8 is replaced, and nothing in it acts on a terminal.
std::string JsonLine(const nlohmann::json &value);
std::string JsonLine(const nlohmann::ordered_json &value);
void PrintJson(const nlohmann::json &value);

// Where the output goes, for what is no text. Whoever writes there prints nothing.
int OutputDescriptor();
bool OutputIsTerminal();
// The columns of the terminal, or no limit when the output is none.
size_t OutputWidth();

// The text, in bold type on a terminal whose user wants that (NO_COLOR).
std::string Bold(std::string_view text);

// A line on standard error that the next one replaces, for long work; nothing unless that is a terminal. An empty text
// takes the line away.
void ShowProgress(std::string_view text);

}  // namespace zor::ctl

#endif
