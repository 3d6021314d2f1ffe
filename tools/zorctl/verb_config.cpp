// The configuration store: the values that daemons store there, by their numbers. All of it goes through the
// platform's functions.
#include <unistd.h>
#include <zor/platform/config.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "programs/messages/number.h"
#include "programs/paths.h"
#include "zorctl/format.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/store_list.h"
#include "zorctl/store_value.h"
#include "zorctl/table.h"
#include "zorctl/text.h"
#include "zorctl/value.h"
#include "zorctl/verbs.h"
#include "zorctl/watchdog.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::json;
using Align = Table::Align;

constexpr char kParameter[] = "parameter";
constexpr char kObject[] = "object";
constexpr char kAppData[] = "appdata";
constexpr char kUser[] = "user";

struct Key {
  uint32_t id;
  std::optional<uint32_t> instance;
};

// The key that a word such as 0x70000001 or 4.1 names.
Key ParseKey(std::string_view word) {
  const size_t dot = std::min(word.find('.'), word.size());
  const auto id = messages::ParseUint32(word.substr(0, dot));
  const auto instance = dot == word.size() ? std::nullopt : messages::ParseUint32(word.substr(dot + 1));
  if (id && instance.has_value() == (dot < word.size())) return {*id, instance};
  throw Failure(kExitUsage, "not NUMBER or NUMBER.INSTANCE: " + Escape(word),
                "write 0x70000001 or, with an instance, 4.1");
}

void CheckStoreIsThere() {
  const std::string path = daemon::FixedPath(ZOR_STORE_PATH);
  if (::access(path.c_str(), R_OK | W_OK) == 0) return;
  if (errno == EACCES) {
    throw Failure(kExitRefused, "no permission to open " + path, "run this as a member of the store's group");
  }
  throw Failure(kExitNotFound, "no configuration store at " + path,
                "the first daemon that uses it creates it, or zorctl config set --create");
}

// One row of a list. Values are not listed: they may be secrets.
struct Listed {
  const char *kind;
  StoreEntry entry;
  std::string names;
};

void Append(const char *kind, const std::vector<StoreEntry> &entries, std::vector<Listed> &list) {
  for (const StoreEntry &entry : entries) list.push_back({kind, entry, Join(entry.names, ",")});
}

// The number of the user in the name of a file that cms wrote; no value for other names.
std::optional<uint32_t> UserIn(std::string_view name, std::string_view before) {
  constexpr std::string_view kAfter = ".db";
  if (!name.starts_with(before) || !name.ends_with(kAfter)) return std::nullopt;
  name.remove_prefix(before.size());
  name.remove_suffix(kAfter.size());
  return messages::ParseUint32(name);
}

void AppendUsers(const std::string &directory, std::vector<Listed> &list) {
  std::error_code error;
  const std::string path = daemon::FixedPath(directory);
  for (const auto &file : std::filesystem::directory_iterator(path, error)) {
    const std::string name = file.path().filename().string();
    const auto saved = UserIn(name, "config_");
    const auto user = saved ? saved : UserIn(name, "app_");
    if (!user) continue;
    std::error_code gone;
    list.push_back({kUser, {*user, 0, file.file_size(gone), {}}, saved ? "configuration" : "configuration,appdata"});
  }
  if (error == std::errc::permission_denied) {
    throw Failure(kExitRefused, "no permission to read " + path, "run this as root or as the user of cms");
  }
  if (error) {
    throw Failure(kExitNotFound, "no saved configurations in " + path, "give cms's setting directory with --directory");
  }
  std::sort(list.begin(), list.end(), [](const Listed &left, const Listed &right) {
    return std::pair(left.entry.id, left.names) < std::pair(right.entry.id, right.names);
  });
}

class ConfigVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("ACTION", action_, "list, get or set").Required().OneOf({"list", "get", "set"}).Type("");
    options.Add("KIND", kind_, "parameter, object, appdata or, with list, user: who has saved a configuration")
        .OneOf({kParameter, kObject, kAppData, kUser})
        .Type("");
    options.Add("ID", id_, "NUMBER or NUMBER.INSTANCE of a parameter, CLASS.INSTANCE, or an item's NUMBER").Type("");
    options.Add("VALUE", words_, "The value to set; for an object NAME=VALUE ...").Type("");
    AddFormatOption(options, format_);
    options.AddFlag("--create", create_, "Let set create the store; for an object without INSTANCE, a new instance");
    options.Add("--directory", directory_, "Where cms stores users' saved configurations (its setting directory)")
        .Type("PATH")
        .ShowDefault();
  }

  ExitCode Run(const Common &common) override {
    json_ = common.json;
    const Watchdog watchdog(common.deadline(), kStuckText);
    if (action_ == "list") return List();
    if (kind_.empty() || id_.empty()) {
      throw Failure(kExitUsage, "KIND and ID are required", "zorctl config --help explains it");
    }
    if (kind_ == kUser) {
      throw Failure(kExitUsage, "the store has no separate values for users",
                    "zorctl config list user shows who has saved a configuration");
    }
    key_ = ParseKey(id_);
    if (kind_ == kAppData && key_.instance) {
      throw Failure(kExitUsage, "application data has no instances", "give the item's number alone");
    }
    return action_ == "get" ? Get() : Set();
  }

 private:
  static constexpr char kStuckText[] =
      "zorctl: another process is using the configuration store; try again, or increase --timeout\n";

  ExitCode List() const {
    std::vector<Listed> list;
    if (kind_ == kUser) {
      AppendUsers(directory_, list);
    } else {
      CheckStoreIsThere();
      const StoreContents contents = ListStore();
      if (kind_.empty() || kind_ == kParameter) Append(kParameter, contents.parameters, list);
      if (kind_.empty() || kind_ == kObject) Append(kObject, contents.objects, list);
      if (kind_.empty() || kind_ == kAppData) Append(kAppData, contents.appData, list);
    }
    json_ ? PrintListJson(list) : PrintList(list);
    return kExitOk;
  }

  static void PrintList(const std::vector<Listed> &list) {
    Table table({{"KIND"}, {"ID"}, {"INSTANCE", Align::kRight}, {"SIZE", Align::kRight}, {"HOLDS"}});
    for (const auto &[kind, entry, names] : list) {
      const bool hasInstance = kind == std::string_view(kParameter) || kind == std::string_view(kObject);
      table.Add({kind, kind == std::string_view(kUser) ? std::to_string(entry.id) : HexText(entry.id),
                 hasInstance ? std::to_string(entry.instance) : "-", std::to_string(entry.size), names});
    }
    table.Print();
  }

  static void PrintListJson(const std::vector<Listed> &list) {
    Json all = Json::array();
    for (const auto &[kind, entry, names] : list) {
      Json each = {{"kind", kind}, {"id", entry.id}, {"size", entry.size}};
      if (kind == std::string_view(kParameter) || kind == std::string_view(kObject)) each["instance"] = entry.instance;
      if (kind == std::string_view(kObject)) each["names"] = entry.names;
      if (kind == std::string_view(kUser)) each["holds"] = names;
      all.push_back(each);
    }
    PrintJson(all);
  }

  ExitCode Get() const {
    if (!words_.empty()) throw Failure(kExitUsage, "get takes no value", "zorctl config set sets one");
    CheckStoreIsThere();
    if (kind_ == kObject) {
      PrintObject(ReadObject(key_.id, ObjectInstance()));
      return kExitOk;
    }
    const std::string value =
        kind_ == kParameter ? ReadParameter(key_.id, key_.instance.value_or(0)) : ReadAppData(key_.id);
    json_ ? PrintJson(BytesJson(value)) : Print(ShowBytes(value) + "\n");
    return kExitOk;
  }

  ExitCode Set() const {
    if (!create_) CheckStoreIsThere();
    if (kind_ == kObject) return SetObject();
    if (words_.size() != 1)
      throw Failure(kExitUsage, "exactly one VALUE is required", "quote a value that contains blanks");
    const std::string value = ParseBytes(words_.front(), format_, kMaxStoreValue);
    if (kind_ == kParameter) {
      WriteParameter(key_.id, key_.instance.value_or(0), value);
    } else {
      WriteAppData(key_.id, value);
    }
    if (json_) PrintJson({{"kind", kind_}, {"id", key_.id}, {"size", value.size()}});
    return kExitOk;
  }

  ExitCode SetObject() const {
    const messages::Values values = ParsePairs(words_);
    if (values.empty()) throw Failure(kExitUsage, "NAME=VALUE is required", "an object's values have names");
    uint32_t instance = 0;
    if (create_ && !key_.instance) {
      instance = AddObject(key_.id, values);
      if (!json_) Print(std::to_string(key_.id) + "." + std::to_string(instance) + "\n");
    } else {
      instance = ObjectInstance();
      WriteObject(key_.id, instance, values);
    }
    if (json_) PrintJson({{"kind", kind_}, {"id", key_.id}, {"instance", instance}});
    return kExitOk;
  }

  uint32_t ObjectInstance() const {
    if (key_.instance) return *key_.instance;
    throw Failure(kExitUsage, "an object needs an instance",
                  "write CLASS.INSTANCE; zorctl config list object shows them");
  }

  void PrintObject(const messages::Values &values) const {
    Json object = Json::object();
    for (const auto &[name, value] : values) {
      if (!json_) Print(Escape(name) + "=" + Escape(value) + "\n");
      object[name] = value;
    }
    if (json_) PrintJson({{"kind", kind_}, {"id", key_.id}, {"instance", *key_.instance}, {"values", object}});
  }

  std::string action_;
  std::string kind_;
  std::string id_;
  std::vector<std::string> words_;
  std::string format_ = "string";
  bool create_ = false;
  std::string directory_ = "/var/cfg";
  bool json_ = false;
  Key key_ = {};
};

}  // namespace

std::unique_ptr<Verb> MakeConfigVerb() {
  return std::make_unique<ConfigVerb>();
}

}  // namespace zor::ctl
