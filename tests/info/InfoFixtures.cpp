#include "tests/info/InfoFixtures.hpp"

#include <cstring>
#include <stdexcept>

#include <arrow/io/file.h>
#include <arrow/io/memory.h>
#include <parquet/arrow/writer.h>

#include "tests/support/TestSupport.hpp"

namespace vxtest::info {
namespace {

void check(const arrow::Status& status, const char* what) {
  if (!status.ok()) throw std::runtime_error(std::string(what) + ": " + status.ToString());
}

constexpr char kMagic[] = "PAR1";
constexpr int64_t kFillerBytes = 64;

}  // namespace

std::shared_ptr<arrow::Table> repetitiveTable(int64_t rows) {
  arrow::Int64Builder values;
  for (int64_t i = 0; i < rows; ++i) check(values.Append(i % 7), "append");
  return arrow::Table::Make(arrow::schema({arrow::field("v", arrow::int64())}),
                            {values.Finish().ValueOrDie()});
}

void writeFooterOnly(const std::string& path, const std::shared_ptr<parquet::schema::Node>& root,
                     const std::vector<RowGroupFooter>& rowGroups) {
  parquet::SchemaDescriptor descriptor;
  descriptor.Init(root);
  // Encoding and codec are per leaf in the writer properties, so the first row group's choice
  // holds for all of them.
  parquet::WriterProperties::Builder builder;
  for (int i = 0; i < descriptor.num_columns() && !rowGroups.empty(); ++i) {
    const auto& chunk = rowGroups.front().chunks.at(i);
    const std::string leaf = descriptor.Column(i)->path()->ToDotString();
    builder.encoding(leaf, chunk.encoding)->compression(leaf, chunk.compression);
  }
  auto fileBuilder = parquet::FileMetaDataBuilder::Make(&descriptor, builder.build());
  for (const auto& group : rowGroups) {
    if (static_cast<int>(group.chunks.size()) != descriptor.num_columns()) {
      throw std::invalid_argument("writeFooterOnly: one chunk per leaf");
    }
    auto* rowGroup = fileBuilder->AppendRowGroup();
    rowGroup->set_num_rows(group.rows);
    for (const auto& chunk : group.chunks) {
      const int64_t dictionaryOffset = chunk.hasDictionary ? chunk.firstPageOffset : 0;
      const int64_t dataOffset = chunk.firstPageOffset + (chunk.hasDictionary ? 4 : 0);
      rowGroup->NextColumnChunk()->Finish(group.rows, dictionaryOffset, 0, dataOffset, 16, 16,
                                          chunk.hasDictionary, chunk.dictionaryFallback, {}, {});
    }
    rowGroup->Finish(kFillerBytes);
  }
  const auto metadata = fileBuilder->Finish();

  auto footer = arrow::io::BufferOutputStream::Create().ValueOrDie();
  metadata->WriteTo(footer.get());
  const auto footerBytes = footer->Finish().ValueOrDie();
  const auto footerLength = static_cast<uint32_t>(footerBytes->size());
  char lengthBytes[4];
  std::memcpy(lengthBytes, &footerLength, sizeof lengthBytes);  // little-endian machine

  std::string bytes(kMagic, 4);
  bytes.append(kFillerBytes, '\0');
  bytes.append(footerBytes->ToString());
  bytes.append(lengthBytes, 4);
  bytes.append(kMagic, 4);
  writeBytes(path, bytes);
}

void writeFooterOnly(const std::string& path, const std::shared_ptr<parquet::schema::Node>& root,
                     int64_t rows, const std::vector<ChunkFooter>& chunks) {
  writeFooterOnly(path, root, std::vector<RowGroupFooter>{{rows, chunks}});
}

std::shared_ptr<parquet::schema::Node> int64Node(const std::string& name) {
  return parquet::schema::PrimitiveNode::Make(name, parquet::Repetition::REQUIRED,
                                              parquet::Type::INT64);
}

}  // namespace vxtest::info
