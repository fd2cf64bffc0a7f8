#include "tests/support/TestSupport.hpp"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>

#include <arrow/io/file.h>
#include <arrow/util/config.h>
#if ARROW_VERSION_MAJOR >= 19
#include <arrow/json/from_string.h>
#else
#include <arrow/ipc/json_simple.h>
#endif
#include <boost/property_tree/json_parser.hpp>

#include "host/unicode/ustring.hpp"

namespace vxtest {

TempDir::TempDir() {
  std::string pattern = "/tmp/vxtest-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  mPath = pattern;
}

TempDir::~TempDir() {
  const std::string command = "rm -rf '" + mPath + "'";
  if (std::system(command.c_str()) != 0)
    std::fprintf(stderr, "could not remove %s\n", mPath.c_str());
}

std::u16string TempDir::ufile(const std::string& name) const { return u16(file(name)); }

std::u16string u16(const std::string& utf8) { return foundation::unicode::utf8_to_ustring(utf8); }
std::string u8(const std::u16string& utf16) { return foundation::unicode::ustring_to_utf8(utf16); }

bool fileExists(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0;
}

void writeBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void writeParquet(const std::string& path, const std::shared_ptr<arrow::Table>& table,
                  int64_t rowGroupSize, std::shared_ptr<parquet::WriterProperties> properties,
                  std::shared_ptr<parquet::ArrowWriterProperties> arrowProperties) {
  auto sink = arrow::io::FileOutputStream::Open(path).ValueOrDie();
  const auto status = parquet::arrow::WriteTable(*table, arrow::default_memory_pool(), sink,
                                                 rowGroupSize, properties, arrowProperties);
  if (!status.ok()) throw std::runtime_error("writeParquet: " + status.ToString());
  ARROW_UNUSED(sink->Close());
}

void writeParquetWithoutRowGroups(const std::string& path,
                                  const std::shared_ptr<arrow::Schema>& schema) {
  auto sink = arrow::io::FileOutputStream::Open(path).ValueOrDie();
  auto writer = parquet::arrow::FileWriter::Open(*schema, arrow::default_memory_pool(), sink);
  auto status = writer.ok() ? (*writer)->Close() : writer.status();
  if (!status.ok()) throw std::runtime_error("writeParquetWithoutRowGroups: " + status.ToString());
  ARROW_UNUSED(sink->Close());
}

void writeTruncatedCopy(const std::string& source, const std::string& target, size_t cut) {
  const std::string bytes = readBytes(source);
  writeBytes(target, bytes.substr(0, bytes.size() > cut ? bytes.size() - cut : 0));
}

std::shared_ptr<arrow::Array> arrayFromJSON(const std::shared_ptr<arrow::DataType>& type,
                                            const std::string& json) {
#if ARROW_VERSION_MAJOR >= 19
  return arrow::json::ArrayFromJSONString(type, json).ValueOrDie();
#else
  return arrow::ipc::internal::json::ArrayFromJSON(type, json).ValueOrDie();
#endif
}

std::shared_ptr<arrow::Table> table(const std::vector<std::string>& names,
                                    const std::vector<std::shared_ptr<arrow::Array>>& columns) {
  std::vector<std::shared_ptr<arrow::Field>> fields;
  for (size_t i = 0; i < names.size(); ++i) {
    fields.push_back(arrow::field(names[i], columns[i]->type()));
  }
  return arrow::Table::Make(arrow::schema(fields), columns);
}

std::shared_ptr<arrow::Table> simpleTable(int64_t rows) {
  arrow::Int64Builder ids;
  arrow::DoubleBuilder xs;
  arrow::StringBuilder names;
  for (int64_t i = 0; i < rows; ++i) {
    ARROW_UNUSED(ids.Append(i));
    ARROW_UNUSED(xs.Append(static_cast<double>(i) / 2));
    ARROW_UNUSED(names.Append("r" + std::to_string(i)));
  }
  auto schema =
      arrow::schema({arrow::field("id", arrow::int64()), arrow::field("x", arrow::float64()),
                     arrow::field("name", arrow::utf8())});
  return arrow::Table::Make(
      schema, {ids.Finish().ValueOrDie(), xs.Finish().ValueOrDie(), names.Finish().ValueOrDie()});
}

std::string writeSimpleFile(const TempDir& dir, const std::string& name, int64_t rows,
                            int64_t rowGroupSize) {
  const std::string path = dir.file(name);
  writeParquet(path, simpleTable(rows), rowGroupSize);
  return path;
}

struct LogCapture::State {
  mutable std::mutex lock;
  std::vector<Record> records;
};

LogCapture::LogCapture(unsigned mask)
    : mState(std::make_shared<State>()), mPreviousMask(foundation::log::mask()) {
  auto state = mState;
  foundation::log::capture([state](unsigned severity, int indent, std::string_view text) {
    std::lock_guard<std::mutex> guard(state->lock);
    state->records.push_back({severity, indent, std::string(text)});
  });
  foundation::log::setMask(mask);
}

LogCapture::~LogCapture() {
  foundation::log::setMask(mPreviousMask);
  foundation::log::capture(nullptr);
}

std::vector<LogCapture::Record> LogCapture::records() const {
  std::lock_guard<std::mutex> guard(mState->lock);
  return mState->records;
}

bool LogCapture::contains(const std::string& needle) const {
  const auto all = records();
  return std::any_of(all.begin(), all.end(),
                     [&](const Record& r) { return r.text.find(needle) != std::string::npos; });
}

std::optional<foundation::core::except::MessageArguments> expectHostError(
    const std::function<void()>& fn, const std::string& identifier) {
  try {
    fn();
  } catch (const foundation::core::except::IMsgIDException& e) {
    EXPECT_EQ(e.identifier(), identifier) << e.message();
    if (e.identifier() == identifier) return e.arguments();
    return std::nullopt;
  } catch (const std::exception& e) {
    ADD_FAILURE() << "expected " << identifier << ", got std::exception: " << e.what();
    return std::nullopt;
  }
  ADD_FAILURE() << "expected " << identifier << ", nothing was thrown";
  return std::nullopt;
}

ProgramResult runVxparquet(const std::string& arguments) {
  TempDir scratch;
  const std::string command = std::string(VX_BINARY_DIR) + "/tools/vxparquet " + arguments + " >" +
                              scratch.file("out") + " 2>" + scratch.file("err");
  ProgramResult result;
  const int status = std::system(command.c_str());
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.out = readBytes(scratch.file("out"));
  result.err = readBytes(scratch.file("err"));
  return result;
}

boost::property_tree::ptree parseJson(const std::string& text) {
  std::istringstream in(text);
  boost::property_tree::ptree tree;
  boost::property_tree::read_json(in, tree);
  return tree;
}

std::string interopDir() {
  struct stat info {};
  const std::string dir = VX_INTEROP_DIR;
  return (::stat(dir.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) ? dir : std::string();
}

std::vector<std::string> interopFiles() {
  std::vector<std::string> files;
  const std::string dir = interopDir();
  if (dir.empty()) return files;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* entry = ::readdir(d)) {
      const std::string name = entry->d_name;
      if (name.size() > 8 && name.compare(name.size() - 8, 8, ".parquet") == 0) {
        files.push_back(dir + "/" + name);
      }
    }
    ::closedir(d);
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace vxtest
