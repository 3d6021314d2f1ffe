// All types that are known here: our own, which are compiled in, and those of vendors, from the files that are
// installed.
//
// The files are read when a number or a name is looked up that is not ours, so that a tool that needs none does not
// wait for them. Our own numbers cannot be described anew, except that events of a module have a vendor's names; of two
// files that describe one number the first one counts. A file with a mistake is skipped as a whole and reported.
#ifndef PROGRAMS_TYPES_BOOK_H
#define PROGRAMS_TYPES_BOOK_H

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "programs/types/reader.h"
#include "programs/types/type.h"

namespace zor::types {

inline constexpr char kTypesFolder[] = "/usr/share/zor/types.d";  // a fixed path
inline constexpr char kTypesVariable[] = "ZOR_TYPES";             // further folders, with colons between them

class TypeBook {
 public:
  // Without files of vendors.
  TypeBook() = default;
  TypeBook(const TypeBook &) = delete;
  TypeBook &operator=(const TypeBook &) = delete;

  // What is installed; read once by a process. Problems are printed to standard error, the first one of each file.
  static TypeBook &Installed();

  // Types and modules whose numbers are taken already are left out, which is a problem.
  void Add(TypeFile file);
  // The files NAME.json, in the order of their names; our own is skipped. A folder that is missing is empty.
  void AddFolder(const std::string &path);

  // How a message of that number looks. Null for an unknown one; never a vendor's event, since events share a form.
  const Type *Find(uint32_t type);
  // An event by its number and name.
  const Type *FindEvent(uint32_t type, std::string_view event);
  // All types of that name, in any case: "thermo.GetState", or "GetState"; ours also without "ZOR_MSG_" or "ZOR_".
  std::vector<const Type *> Named(std::string_view name);
  // All that have the number, ranges included.
  std::vector<const Type *> AllOf(uint32_t type);
  // A vendor's module of events; null for any other.
  const Module *FindModule(std::string_view name);
  const Module *FindModule(uint32_t type);

  // All types: ours, then those of vendors, both in ascending order.
  std::vector<const Type *> All();
  const std::deque<TypeFile> &Files();
  const std::vector<Problem> &problems() const { return problems_; }

 private:
  enum class Source { kInstalled };
  explicit TypeBook(Source) : loaded_(false) {}

  void Load();
  const Type *FindAdded(uint32_t type) const;
  void AddTypes(TypeFile &file);
  void AddModules(TypeFile &file);

  bool loaded_ = true;
  std::deque<TypeFile> files_;                   // their types stay where they are
  std::multimap<uint32_t, const Type *> added_;  // by their first number
  std::vector<Problem> problems_;
};

}  // namespace zor::types

#endif
