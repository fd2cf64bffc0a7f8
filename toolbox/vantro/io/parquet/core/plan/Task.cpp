#include "toolbox/vantro/io/parquet/core/plan/Task.hpp"

#include <cstdio>
#include <filesystem>
#include <limits>
#include <sstream>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace vantro::io::parquet::core::plan {
namespace {

namespace msg = VANTRO::parquetio::plan;
namespace fs = std::filesystem;
using boost::property_tree::ptree;
using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;

bool isIri(const std::string& name) { return name.find("://") != std::string::npos; }

// ---------------------------------------------------------------------------------------------
// Writing

void appendJsonString(std::string& out, const std::string& text) {
  out += '"';
  for (const unsigned char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20 || c == 0x7f) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
          out += escaped;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  out += '"';
}

// The deepest folder holding every file; empty when a file is an IRI or there are none.
fs::path commonRoot(const std::vector<std::string>& names) {
  fs::path root;
  bool first = true;
  for (const auto& name : names) {
    if (isIri(name)) return {};
    const fs::path folder = fs::path(name).parent_path();
    if (first) {
      root = folder;
      first = false;
      continue;
    }
    fs::path shared;
    auto a = root.begin();
    auto b = folder.begin();
    for (; a != root.end() && b != folder.end() && *a == *b; ++a, ++b) shared /= *a;
    root = shared;
  }
  return root;
}

// ---------------------------------------------------------------------------------------------
// Reading

[[noreturn]] void invalid(const std::string& why) { common::throwException<msg::InvalidTask>(why); }

uint64_t wholeNumber(const ptree& node, const std::string& what, uint64_t max) {
  const std::string text = node.get_value<std::string>();
  if (text.empty() || !node.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
    invalid("'" + what + "' must be a whole number, not '" + text + "'");
  }
  // 19 digits always fit in 64 bits.
  if (text.size() > 19 || std::stoull(text) > max) {
    invalid("'" + what + "' is out of range: " + text);
  }
  return std::stoull(text);
}

const ptree& required(const ptree& node, const std::string& key) {
  const auto found = node.find(key);
  if (found == node.not_found()) invalid("it has no '" + key + "'");
  return found->second;
}

// A JSON array (property trees keep its elements under empty keys); an empty array and an
// empty text look alike there, and both mean no elements.
const ptree& requiredArray(const ptree& node, const std::string& key) {
  const ptree& array = required(node, key);
  if (!array.data().empty()) invalid("'" + key + "' must be a list");
  for (const auto& element : array) {
    if (!element.first.empty()) invalid("'" + key + "' must be a list");
  }
  return array;
}

TaskFile readFile(const ptree& node, const fs::path& root) {
  TaskFile file;
  const std::string path = required(node, "path").get_value<std::string>();
  if (path.empty()) invalid("a file has an empty 'path'");
  file.name = utf8_to_ustring(root.empty() ? path : (root / path).lexically_normal().string());
  file.fingerprint.size =
      wholeNumber(required(node, "size"), "size", std::numeric_limits<int64_t>::max());
  const std::string footer = required(node, "footer").get_value<std::string>();
  if (!parseFooterHash(footer, file.fingerprint.footerHash)) {
    invalid("'footer' must be 'fnv1a64:' and 16 hex digits, not '" + footer + "'");
  }
  for (const auto& entry : requiredArray(node, "row_groups")) {
    const uint64_t number =
        wholeNumber(entry.second, "row_groups", std::numeric_limits<int>::max());
    if (number == 0) invalid("row groups are numbered from 1");
    file.rowGroups.push_back(static_cast<int>(number - 1));
  }
  return file;
}

std::string relativeTo(const fs::path& root, const std::string& name) {
  return root.empty() ? name : fs::path(name).lexically_relative(root).string();
}

void appendDataset(std::string& out, const TaskDataset& dataset, const fs::path& root) {
  out += ",\"dataset\":{\"sources\":[";
  for (size_t i = 0; i < dataset.sources.size(); ++i) {
    if (i > 0) out += ',';
    appendJsonString(out, relativeTo(root, ustring_to_utf8(dataset.sources[i])));
  }
  out += "],\"partitioning\":";
  out += dataset.hive ? "\"hive\"" : "\"none\"";
  out += ",\"strict\":";
  out += dataset.strict ? "true" : "false";
  out += '}';
}

TaskDataset readDataset(const ptree& node, const fs::path& root) {
  TaskDataset dataset;
  for (const auto& entry : requiredArray(node, "sources")) {
    const std::string source = entry.second.get_value<std::string>();
    if (source.empty()) invalid("a dataset source is empty");
    dataset.sources.push_back(
        utf8_to_ustring(root.empty() ? source : (root / source).lexically_normal().string()));
  }
  const std::string partitioning = node.get<std::string>("partitioning", "hive");
  if (partitioning != "hive" && partitioning != "none") {
    invalid("'partitioning' must be \"hive\" or \"none\", not '" + partitioning + "'");
  }
  dataset.hive = partitioning == "hive";
  const std::string strict = node.get<std::string>("strict", "false");
  if (strict != "true" && strict != "false") invalid("'strict' must be true or false");
  dataset.strict = strict == "true";
  return dataset;
}

}  // namespace

std::string taskToText(const Task& task) {
  std::vector<std::string> names;
  for (const auto& file : task.files) names.push_back(ustring_to_utf8(file.name));
  // The dataset's sources take part in the root (a source's folder stands in for it), so that
  // a root replaced on reading moves them with the files.
  std::vector<std::string> placed = names;
  if (task.dataset) {
    for (const auto& source : task.dataset->sources) {
      placed.push_back((fs::path(ustring_to_utf8(source)) / "x").string());
    }
  }
  const fs::path root = commonRoot(placed);

  std::string out = "{\"task\":" + std::to_string(task.number) +
                    ",\"tasks\":" + std::to_string(task.count) + ",\"root\":";
  appendJsonString(out, root.string());
  out += ",\"bytes\":" + std::to_string(task.bytes) + ",\"rows\":" + std::to_string(task.rows) +
         ",\"files\":[";
  for (size_t i = 0; i < task.files.size(); ++i) {
    const TaskFile& file = task.files[i];
    out += i == 0 ? "{\"path\":" : ",{\"path\":";
    appendJsonString(out, relativeTo(root, names[i]));
    out += ",\"size\":" + std::to_string(file.fingerprint.size) + ",\"footer\":\"" +
           footerHashText(file.fingerprint.footerHash) + "\",\"row_groups\":[";
    for (size_t r = 0; r < file.rowGroups.size(); ++r) {
      if (r > 0) out += ',';
      out += std::to_string(file.rowGroups[r] + 1);
    }
    out += "]}";
  }
  out += ']';
  if (task.variables) {
    out += ",\"variables\":[";
    for (size_t v = 0; v < task.variables->size(); ++v) {
      if (v > 0) out += ',';
      appendJsonString(out, (*task.variables)[v]);
    }
    out += ']';
  }
  if (task.where) {
    out += ",\"where\":";
    appendJsonString(out, *task.where);
  }
  if (task.dataset) appendDataset(out, *task.dataset, root);
  out += '}';
  return out;
}

Task taskFromText(const std::string& text, const std::optional<std::u16string>& newRoot) {
  ptree tree;
  try {
    std::istringstream stream(text);
    boost::property_tree::read_json(stream, tree);
  } catch (const boost::property_tree::json_parser_error& e) {
    invalid("it is not JSON (" + e.message() + " at line " + std::to_string(e.line()) + ")");
  }
  Task task;
  task.count = wholeNumber(required(tree, "tasks"), "tasks", std::numeric_limits<uint32_t>::max());
  task.number = wholeNumber(required(tree, "task"), "task", task.count);
  if (task.number == 0) invalid("tasks are numbered from 1");
  if (const auto bytes = tree.get_child_optional("bytes")) {
    task.bytes = wholeNumber(*bytes, "bytes", std::numeric_limits<uint64_t>::max());
  }
  if (const auto rows = tree.get_child_optional("rows")) {
    task.rows = wholeNumber(*rows, "rows", std::numeric_limits<uint64_t>::max());
  }
  const std::string savedRoot = required(tree, "root").get_value<std::string>();
  const fs::path root =
      newRoot && !savedRoot.empty() ? fs::path(ustring_to_utf8(*newRoot)) : fs::path(savedRoot);
  for (const auto& file : requiredArray(tree, "files"))
    task.files.push_back(readFile(file.second, root));
  if (tree.find("variables") != tree.not_found()) {
    task.variables.emplace();
    for (const auto& name : requiredArray(tree, "variables"))
      task.variables->push_back(name.second.get_value<std::string>());
  }
  if (const auto where = tree.get_optional<std::string>("where")) task.where = *where;
  if (const auto dataset = tree.get_child_optional("dataset")) {
    task.dataset = readDataset(*dataset, root);
  }
  return task;
}

void checkTaskFiles(const Task& task) {
  for (const auto& file : task.files) {
    auto adapter = common::makeReadableFilePtr(file.name);
    auto fingerprint = fingerprintFile(*adapter);
    common::throwReadExceptIfNotOk(fingerprint.status(), adapter->GetFilename());
    if (fingerprint->size != file.fingerprint.size) {
      common::throwException<msg::FileChanged>(
          file.name, "it has " + std::to_string(fingerprint->size) + " bytes, the task expects " +
                         std::to_string(file.fingerprint.size));
    }
    if (fingerprint->footerHash != file.fingerprint.footerHash) {
      common::throwException<msg::FileChanged>(
          file.name, "its footer hashes to " + footerHashText(fingerprint->footerHash) +
                         ", the task expects " + footerHashText(file.fingerprint.footerHash));
    }
  }
}

}  // namespace vantro::io::parquet::core::plan
