#include "zorctl/store_file.h"

#include <sqlite3.h>

#include <memory>

#include "zorctl/exit_code.h"

namespace zor::ctl {
namespace {

constexpr int kVersion = 1;
constexpr int kBusyTimeoutMs = 2000;

class Reader {
 public:
  explicit Reader(const std::string &path) : path_(path) {
    sqlite3 *opened = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READONLY, nullptr);
    database_.reset(opened);
    if (result != SQLITE_OK) Fail();
    sqlite3_busy_timeout(opened, kBusyTimeoutMs);
    int version = 0;
    ForEach("PRAGMA user_version", [&](sqlite3_stmt *row) { version = sqlite3_column_int(row, 0); });
    if (version != kVersion) {
      throw Failure(kExitFailure, path + " is of version " + std::to_string(version),
                    "this tool reads version " + std::to_string(kVersion));
    }
    ForEach("BEGIN", [](sqlite3_stmt *) {});
  }

  template <class Visit>
  void ForEach(const char *sql, const Visit &visit) {
    sqlite3_stmt *prepared = nullptr;
    if (sqlite3_prepare_v2(database_.get(), sql, -1, &prepared, nullptr) != SQLITE_OK) Fail();
    const std::unique_ptr<sqlite3_stmt, Finalizer> statement(prepared);
    int result;
    while ((result = sqlite3_step(prepared)) == SQLITE_ROW) visit(prepared);
    if (result != SQLITE_DONE) Fail();
  }

  // Rows of a number, an instance and a size.
  std::vector<StoreEntry> Entries(const char *sql) {
    std::vector<StoreEntry> entries;
    ForEach(sql, [&](sqlite3_stmt *row) {
      entries.push_back({Number(row, 0), Number(row, 1), static_cast<uint64_t>(sqlite3_column_int64(row, 2)), {}});
    });
    return entries;
  }

  static uint32_t Number(sqlite3_stmt *row, int column) {
    return static_cast<uint32_t>(sqlite3_column_int64(row, column));
  }

 private:
  struct Closer {
    void operator()(sqlite3 *database) const { sqlite3_close(database); }
  };
  struct Finalizer {
    void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
  };

  [[noreturn]] void Fail() {
    throw Failure(kExitFailure, path_ + ": " + sqlite3_errmsg(database_.get()),
                  "docs/porting.md says what to do with a damaged store");
  }

  std::string path_;
  std::unique_ptr<sqlite3, Closer> database_;
};

// An instance without values is one row without a name.
std::vector<StoreEntry> ReadObjects(Reader &reader) {
  std::vector<StoreEntry> objects;
  const auto add = [&objects](sqlite3_stmt *row) {
    const uint32_t objectClass = Reader::Number(row, 0);
    const uint32_t instance = Reader::Number(row, 1);
    if (objects.empty() || objects.back().id != objectClass || objects.back().instance != instance) {
      objects.push_back({objectClass, instance, 0, {}});
    }
    const unsigned char *name = sqlite3_column_text(row, 2);
    if (name == nullptr) return;
    objects.back().names.emplace_back(reinterpret_cast<const char *>(name));
    ++objects.back().size;
  };
  reader.ForEach(
      "SELECT class, instance, name FROM objects LEFT JOIN object_values USING (class, instance)"
      " ORDER BY class, instance, name",
      add);
  return objects;
}

}  // namespace

StoreContents ReadStoreFile(const std::string &path) {
  Reader reader(path);
  StoreContents contents;
  contents.parameters = reader.Entries("SELECT id, instance, length(value) FROM parameters ORDER BY id, instance");
  contents.objects = ReadObjects(reader);
  contents.appData = reader.Entries("SELECT item, 0, length(value) FROM app_data ORDER BY item");
  return contents;
}

}  // namespace zor::ctl
