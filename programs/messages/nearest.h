// What a user who mistyped a word may have meant.
#ifndef PROGRAMS_MESSAGES_NEAREST_H
#define PROGRAMS_MESSAGES_NEAREST_H

#include <string>
#include <string_view>
#include <vector>

namespace zor::messages {

// The candidate that differs least from the word, ignoring case: by a letter more, less, wrong or out of order for each
// three letters, or by being longer than the word, if no other begins alike. Empty if there is none.
std::string Nearest(std::string_view word, const std::vector<std::string> &candidates);

// "did you mean list? ", the beginning of an advice, or nothing.
std::string DidYouMean(std::string_view word, const std::vector<std::string> &candidates);

}  // namespace zor::messages

#endif
