#include "toolbox/vantro/io/parquet/core/write/ParquetWriterOptions.hpp"

#include <algorithm>
#include <unordered_map>

#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace vantro::io::parquet::core::write {

namespace msg = VANTRO::parquetio::write;
using common::throwException;

namespace {

constexpr auto kVersion1_0 = ::parquet::ParquetVersion::PARQUET_1_0;
constexpr auto kVersion2_0 = common::compat::kParquetVersion2;

const std::unordered_map<std::string, ::arrow::Compression::type>& compressionCodecs() {
  static const std::unordered_map<std::string, ::arrow::Compression::type> codecs = {
      {"brotli", ::arrow::Compression::BROTLI},
      {"gzip", ::arrow::Compression::GZIP},
      {"lz4", ::arrow::Compression::LZ4},
      {"lzo", ::arrow::Compression::LZO},
      {"snappy", ::arrow::Compression::SNAPPY},
      {"uncompressed", ::arrow::Compression::UNCOMPRESSED},
      {"zstd", ::arrow::Compression::ZSTD},
  };
  return codecs;
}

const std::vector<std::string>& encodingNames() {
  static const std::vector<std::string> names = {"dictionary", "plain"};
  return names;
}

::arrow::Compression::type compressionCodec(const std::string& name) {
  const auto& codecs = compressionCodecs();
  const auto found = codecs.find(name);
  if (found == codecs.end()) {
    throwException<msg::InvalidOption>("VariableCompression", name);
  }
  return found->second;
}

bool isEncodingName(const std::string& name) {
  const auto& names = encodingNames();
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

ParquetWriterOptions::ParquetWriterOptions() : mVersion(kVersion2_0) {}
ParquetWriterOptions::ParquetWriterOptions(ParquetWriterOptions&&) noexcept = default;
ParquetWriterOptions& ParquetWriterOptions::operator=(ParquetWriterOptions&&) noexcept = default;
ParquetWriterOptions::~ParquetWriterOptions() = default;

const std::vector<std::u16string>& ParquetWriterOptions::getVariableNames() const {
  return mVariableNames;
}

const std::vector<std::string>& ParquetWriterOptions::getVariableEncoding() const {
  return mVariableEncoding;
}

const std::vector<std::string>& ParquetWriterOptions::getVariableCompression() const {
  return mVariableCompression;
}

const std::string ParquetWriterOptions::getVersion() const {
  return common::compat::isParquetVersion2(mVersion) ? "2.0" : "1.0";
}

bool ParquetWriterOptions::getStoreArrowSchema() const { return mStoreArrowSchema; }

bool ParquetWriterOptions::getUseCompliantNestedTypes() const { return mUseCompliantNestedTypes; }

int64_t ParquetWriterOptions::getMaxRowGroupLength() const { return mMaxRowGroupLength; }

void ParquetWriterOptions::setVariableNames(const std::vector<std::u16string>& names) {
  if (&names != &mVariableNames) mVariableNames = names;
}

void ParquetWriterOptions::setVariableEncoding(const std::vector<std::string>& encoding) {
  if (&encoding != &mVariableEncoding) mVariableEncoding = encoding;
}

void ParquetWriterOptions::setVariableCompression(const std::vector<std::string>& compression) {
  if (&compression != &mVariableCompression) mVariableCompression = compression;
}

void ParquetWriterOptions::setVersion(const std::string& version) {
  if (version == "2.0") {
    mVersion = kVersion2_0;
  } else if (version == "1.0") {
    mVersion = kVersion1_0;
  } else {
    throwException<msg::InvalidOption>("Version", version);
  }
}

void ParquetWriterOptions::setStoreArrowSchema(bool store) { mStoreArrowSchema = store; }

void ParquetWriterOptions::setUseCompliantNestedTypes(bool compliant) {
  mUseCompliantNestedTypes = compliant;
}

void ParquetWriterOptions::setMaxRowGroupLength(int64_t length) { mMaxRowGroupLength = length; }

void ParquetWriterOptions::setLeafColumnPaths(std::unique_ptr<LeafColumnPaths> paths) {
  mLeafColumnPaths = std::move(paths);
}

void ParquetWriterOptions::validate() const {
  if (!mLeafColumnPaths) {
    // Without leaf paths a variable cannot be mapped to its columns, so per-variable settings
    // are refused outright.
    if (!mVariableEncoding.empty()) {
      throwException<msg::WrongOptionNumel>("VariableEncoding", 0);
    }
    if (!mVariableCompression.empty()) {
      throwException<msg::WrongOptionNumel>("VariableCompression", 0);
    }
  } else {
    const size_t numVariables = mVariableNames.size();
    if (mLeafColumnPaths->numVariables() != numVariables) {
      throwException<msg::LeafColumnPathsNumTopLevelCols>(mLeafColumnPaths->numVariables(),
                                                          numVariables);
    }
    if (!mVariableEncoding.empty() && mVariableEncoding.size() != numVariables) {
      throwException<msg::WrongOptionNumel>("VariableEncoding", numVariables);
    }
    if (!mVariableCompression.empty() && mVariableCompression.size() != numVariables) {
      throwException<msg::WrongOptionNumel>("VariableCompression", numVariables);
    }
  }
  for (const auto& encoding : mVariableEncoding) {
    if (!isEncodingName(encoding)) {
      throwException<msg::InvalidOption>("VariableEncoding", encoding);
    }
  }
  // Parquet cuts each table into row groups of at most this many rows; with none allowed per
  // row group it would append empty row groups for ever.
  if (mMaxRowGroupLength < 1) {
    throwException<msg::InvalidOption>("MaxRowGroupLength", std::to_string(mMaxRowGroupLength));
  }
}

std::vector<std::string> ParquetWriterOptions::leafPathsOf(size_t variable) const {
  const auto& offsets = mLeafColumnPaths->offsets();
  const auto& paths = mLeafColumnPaths->paths();
  std::vector<std::string> leafPaths;
  for (uint64_t k = offsets[variable]; k < offsets[variable + 1]; ++k) {
    leafPaths.push_back(foundation::unicode::ustring_to_utf8(paths[k]));
  }
  return leafPaths;
}

void ParquetWriterOptions::setColumnsWithoutDictionary(std::vector<std::string> names) {
  mColumnsWithoutDictionary = std::move(names);
}

void ParquetWriterOptions::setCompression(::parquet::WriterProperties::Builder& builder) const {
  if (mVariableCompression.empty()) {
    // Parquet's own default is uncompressed; the host's files are snappy unless told otherwise.
    builder.compression(::arrow::Compression::SNAPPY);
    return;
  }
  for (size_t i = 0; i < mVariableCompression.size(); ++i) {
    const auto codec = compressionCodec(mVariableCompression[i]);
    for (const auto& path : leafPathsOf(i)) builder.compression(path, codec);
  }
}

void ParquetWriterOptions::setEncoding(::parquet::WriterProperties::Builder& builder) const {
  if (mVariableEncoding.empty()) {
    builder.enable_dictionary();
    for (const auto& name : mColumnsWithoutDictionary) {
      builder.disable_dictionary(
          std::make_shared<::parquet::schema::ColumnPath>(std::vector<std::string>{name}));
    }
    return;
  }
  // "plain" only switches dictionary encoding off; Parquet then picks its fallback encoding.
  for (size_t i = 0; i < mVariableEncoding.size(); ++i) {
    const bool dictionary = mVariableEncoding[i] == "dictionary";
    for (const auto& path : leafPathsOf(i)) {
      if (dictionary) {
        builder.enable_dictionary(path);
      } else {
        builder.disable_dictionary(path);
      }
    }
  }
}

std::shared_ptr<::parquet::WriterProperties> ParquetWriterOptions::buildWriterProperties() const {
  validate();
  ::parquet::WriterProperties::Builder builder;
  // Before the codecs: per-column settings start from the default column's level.
  if (mCompressionLevel) builder.compression_level(*mCompressionLevel);
  setCompression(builder);
  setEncoding(builder);
  builder.max_row_group_length(mMaxRowGroupLength);
  builder.version(mVersion);
  return builder.build();
}

std::shared_ptr<::parquet::ArrowWriterProperties> ParquetWriterOptions::buildArrowWriterProperties()
    const {
  ::parquet::ArrowWriterProperties::Builder builder;
  builder.disable_deprecated_int96_timestamps();
  builder.disallow_truncated_timestamps();
  if (mStoreArrowSchema) builder.store_schema();
  if (mUseCompliantNestedTypes) {
    builder.enable_compliant_nested_types();
  } else {
    builder.disable_compliant_nested_types();
  }
  builder.set_engine_version(::parquet::ArrowWriterProperties::V2);
  return builder.build();
}

}  // namespace vantro::io::parquet::core::write
