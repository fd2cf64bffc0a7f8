#include "toolbox/vantro/io/parquet/core/info/ParquetInfo.hpp"

#include <algorithm>
#include <cctype>
#include <exception>
#include <optional>

#include <arrow/memory_pool.h>
#include <arrow/type.h>
#include <arrow/util/compression.h>
#include <arrow/util/macros.h>
#include <parquet/file_reader.h>
#include <parquet/schema.h>
#include <parquet/types.h>
#include <boost/exception/diagnostic_information.hpp>

#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/EncryptedFiles.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/common/SchemaLeafIndex.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupGeometry.hpp"
#include "toolbox/vantro/io/parquet/core/info/TypeDescriptions.hpp"

namespace vantro::io::parquet::core::info {
namespace {

namespace severity = foundation::log::severity;
using foundation::unicode::to_ustring;

// Parquet reads every 2.x footer as its latest 2.x version, so the minor version says nothing
// about the file: only the major version is reported.
std::string versionText(::parquet::ParquetVersion::type version) {
  return common::compat::isParquetVersion2(version) ? "2.0" : "1.0";
}

// Arrow's codec name in lower case; Arrow's "unknown" means there is nothing to report.
std::string compressionText(::arrow::Compression::type codec) {
  std::string name = ::arrow::util::Codec::GetCodecAsString(codec);
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return name == "unknown" ? std::string() : name;
}

// The host only tells dictionary-encoded chunks from plain ones. A plain chunk lists PLAIN and
// the level encoding; any further entry means a mix that is neither, so it is left unnamed.
const std::string& encodingText(const ::parquet::ColumnChunkMetaData& chunk) {
  static const std::string kDictionary = "dictionary";
  static const std::string kPlain = "plain";
  static const std::string kNone;
  if (chunk.has_dictionary_page()) return kDictionary;
  const auto& encodings = chunk.encodings();
  const bool hasPlain =
      std::find(encodings.begin(), encodings.end(), ::parquet::Encoding::PLAIN) != encodings.end();
  return hasPlain && encodings.size() == 2 ? kPlain : kNone;
}

}  // namespace

ParquetInfo::ParquetInfo(const std::u16string& filename) : mFilename(filename) {
  VANTRO_PARQUET_TRACE();
  auto& logger = common::getLogger();
  logger.log(severity::kFile, " filename=", filename);
  try {
    doBuildInfo();
  } catch (const common::ParquetException<VANTRO::parquetio::read::EncryptedFile>&) {
    // Said as it is: the file is not damaged, it needs keys.
    throw;
  } catch (const std::exception& e) {
    if (logger.enabled(severity::kError)) {
      logger.log(severity::kError,
                 "Exception caught: ", boost::current_exception_diagnostic_information(true));
    }
    common::throwInvalidRead(filename, to_ustring(e.what()));
  }
}

const std::shared_ptr<::parquet::FileMetaData> ParquetInfo::getMetadata() const {
  VANTRO_PARQUET_TRACE();
  return mFileReader->parquet_reader()->metadata();
}

const ::parquet::arrow::SchemaManifest& ParquetInfo::getSchemaManifest() const {
  VANTRO_PARQUET_TRACE();
  return mFileReader->manifest();
}

void ParquetInfo::doBuildInfo() {
  VANTRO_PARQUET_TRACE();
  auto file = common::makeReadableFilePtr(mFilename);
  const ::arrow::Status opened =
      common::compat::OpenFile(file, ::arrow::default_memory_pool(), &mFileReader);
  common::throwIfEncrypted(opened, *file, mFileReader.get(), mFilename);
  common::throwReadExceptIfNotOk(opened, mFilename);
  mFilename = file->GetFilename();
  const ::arrow::Result<int64_t> size = file->GetSize();
  common::throwReadExceptIfNotOk(size.status(), mFilename);
  mFileSize = static_cast<uint64_t>(size.ValueOrDie());

  setVersion();
  setArrowSchema();
  setNumRowGroups();
  setVariableNames();
  setVariableTypes();
  setArrowTypes();
  setRowGroupHeights();
  setRowGroupOffsets();
  setParquetPhysicalTypes();
  setParquetConvertedTypes();
  setParquetLogicalTypes();

  // Compression and encoding describe the first row group only: writers choose them per file.
  if (mNumRowGroups > 0) {
    const auto rowGroup0 = getMetadata()->RowGroup(0);
    setVariableCompression(*rowGroup0);
    setVariableEncoding(*rowGroup0);
  }
}

void ParquetInfo::setVersion() {
  VANTRO_PARQUET_TRACE();
  mVersion = versionText(getMetadata()->version());
}

void ParquetInfo::setArrowSchema() {
  VANTRO_PARQUET_TRACE();
  common::throwReadExceptIfNotOk(mFileReader->GetSchema(&mArrowSchema), mFilename);
}

void ParquetInfo::setNumRowGroups() {
  VANTRO_PARQUET_TRACE();
  mNumRowGroups = getMetadata()->num_row_groups();
}

void ParquetInfo::setVariableNames() {
  VANTRO_PARQUET_TRACE();
  mVariableNames = info::getVariableNames(mArrowSchema);
}

void ParquetInfo::setVariableTypes() {
  VANTRO_PARQUET_TRACE();
  mVariableTypes = info::getVariableTypes(mArrowSchema);
}

void ParquetInfo::setArrowTypes() {
  VANTRO_PARQUET_TRACE();
  for (const auto& field : mArrowSchema->fields()) {
    mArrowTypes.push_back(field->type()->ToString());
  }
}

void ParquetInfo::setRowGroupHeights() {
  VANTRO_PARQUET_TRACE();
  mRowGroupHeights = info::getRowGroupHeights(*getMetadata());
}

void ParquetInfo::setRowGroupOffsets() {
  VANTRO_PARQUET_TRACE();
  mRowGroupOffsets = info::getRowGroupOffsets(*getMetadata());
}

void ParquetInfo::setParquetPhysicalTypes() {
  VANTRO_PARQUET_TRACE();
  const ::parquet::SchemaDescriptor* descriptor = getMetadata()->schema();
  for (const auto& field : getSchemaManifest().schema_fields) {
    const std::optional<int> leaf = common::schema_field_to_leaf_index(field);
    mParquetPhysicalTypes.push_back(
        leaf ? ::parquet::TypeToString(descriptor->Column(*leaf)->physical_type()) : "");
  }
}

// Converted and logical types come from the top-level schema nodes, so a nested variable
// reports its group's annotation (LIST, MAP, ...), not a leaf's.
void ParquetInfo::setParquetConvertedTypes() {
  VANTRO_PARQUET_TRACE();
  const ::parquet::schema::GroupNode* root = getMetadata()->schema()->group_node();
  const int numFields = static_cast<int>(getSchemaManifest().schema_fields.size());
  for (int i = 0; i < numFields; ++i) {
    mParquetConvertedTypes.push_back(
        ::parquet::ConvertedTypeToString(root->field(i)->converted_type()));
  }
}

void ParquetInfo::setParquetLogicalTypes() {
  VANTRO_PARQUET_TRACE();
  const ::parquet::schema::GroupNode* root = getMetadata()->schema()->group_node();
  const int numFields = static_cast<int>(getSchemaManifest().schema_fields.size());
  for (int i = 0; i < numFields; ++i) {
    mParquetLogicalTypes.push_back(root->field(i)->logical_type()->ToString());
  }
}

void ParquetInfo::setVariableCompression(const ::parquet::RowGroupMetaData& rowGroup) {
  VANTRO_PARQUET_TRACE();
  for (const auto& field : getSchemaManifest().schema_fields) {
    const std::optional<int> leaf = common::schema_field_to_leaf_index(field);
    mVariableCompression.push_back(
        leaf ? compressionText(rowGroup.ColumnChunk(*leaf)->compression()) : "");
  }
}

void ParquetInfo::setVariableEncoding(const ::parquet::RowGroupMetaData& rowGroup) {
  VANTRO_PARQUET_TRACE();
  for (const auto& field : getSchemaManifest().schema_fields) {
    const std::optional<int> leaf = common::schema_field_to_leaf_index(field);
    mVariableEncoding.push_back(leaf ? encodingText(*rowGroup.ColumnChunk(*leaf)) : "");
  }
}

}  // namespace vantro::io::parquet::core::info
