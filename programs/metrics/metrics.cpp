#include "programs/metrics/metrics.h"

#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

#include "programs/messages/text.h"

namespace zor::metrics {
namespace {

std::string NumberText(double value) {
  std::array<char, 32> text{};
  const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
  return {text.data(), result.ptr};
}

// As the tool shows names: harmless on a terminal, and texts that are not UTF-8 stay apart, since collectors refuse two
// measurements with the same labels. Then as the format wants it.
std::string Escaped(const std::string &text) {
  std::string escaped;
  for (const char each : messages::Escape(text)) {
    if (each == '\\' || each == '"') escaped += '\\';
    escaped += each;
  }
  return escaped;
}

std::string LabelsText(const Labels &labels) {
  std::string text;
  for (const auto &[name, value] : labels) {
    text += (text.empty() ? "{" : ",") + name + "=\"" + Escaped(value) + "\"";
  }
  return text.empty() ? text : text + "}";
}

bool IsCounter(const MetricFamily &family) {
  return family.type == MetricFamily::Type::kCounter;
}

std::string SampleName(const MetricFamily &family) {
  return std::string(family.name) + (IsCounter(family) ? "_total" : "");
}

}  // namespace

void Metrics::Add(const MetricFamily &family, const Labels &labels, double value) {
  auto &values = values_[&family];
  if (values.empty()) families_.push_back(&family);
  Labels all = common_;
  all.insert(all.end(), labels.begin(), labels.end());
  values[all] += value;
}

std::string Metrics::Text() const {
  std::string text;
  for (const MetricFamily *family : families_) {
    const std::string name = family->name;
    text += "# HELP " + name + " " + family->help + "\n";
    text += "# TYPE " + name + (IsCounter(*family) ? " counter\n" : " gauge\n");
    if (*family->unit != '\0') text += "# UNIT " + name + " " + family->unit + "\n";
    for (const auto &[labels, value] : values_.at(family)) {
      text += SampleName(*family) + LabelsText(labels) + " " + NumberText(value) + "\n";
    }
  }
  return text + "# EOF\n";
}

nlohmann::ordered_json Metrics::AsJson() const {
  using Json = nlohmann::ordered_json;
  Json metrics = Json::array();
  for (const MetricFamily *family : families_) {
    for (const auto &[labels, value] : values_.at(family)) {
      Json object = Json::object();
      for (const auto &[name, text] : labels) object[name] = text;
      metrics.push_back({{"name", SampleName(*family)}, {"labels", object}, {"value", value}});
    }
  }
  return {{"metrics", metrics}};
}

}  // namespace zor::metrics
