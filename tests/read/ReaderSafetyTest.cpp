// Readers refuse what they cannot do safely: no file, impossible footers and page headers, short
// data.
#include <cstring>
#include <filesystem>
#include <random>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <arrow/util/compression.h>
#include <parquet/column_writer.h>
#include <parquet/file_reader.h>
#include <parquet/file_writer.h>
#include <parquet/properties.h>

#include "host/services/Services.hpp"
#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Dataset.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"
#include "toolbox/vantro/io/parquet/core/read/DeclaredSizes.hpp"
#include "toolbox/vantro/io/parquet/core/read/PageHeaders.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::checkPageSizes;
using vantro::io::parquet::core::read::parsePageHeader;
using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::expectHostError;
using vxtest::u16;

constexpr const char* kInvalidRead = "VANTRO:parquetio:read:InternalInvalidRead";

std::string messageOf(const std::optional<foundation::core::except::MessageArguments>& arguments) {
  return arguments ? vxtest::u8(std::get<std::u16string>(arguments->at(1))) : std::string();
}

TEST(ReaderWithoutFile, EveryQueryOfTheFileIsRefused) {
  RowGroupParquetReader never;
  RowGroupParquetReader failed;
  matrix::unique_array badState(vxCreateDoubleMatrix(1, 1, vxREAL));
  expectHostError([&] { failed.deserialize(badState); }, kInvalidRead);
  for (RowGroupParquetReader* reader : {&never, &failed}) {
    const std::function<void()> calls[] = {
        [&] { reader->getVariableNames(); },     [&] { reader->getVariableTypes(); },
        [&] { reader->getTotalNumRowGroups(); }, [&] { reader->getRowGroupHeights(); },
        [&] { reader->getRowGroupOffsets(); },   [&] { reader->getStatistics({0}); },
    };
    for (const auto& call : calls) {
      const auto arguments = expectHostError(call, kInvalidRead);
      EXPECT_NE(messageOf(arguments).find("No file is open"), std::string::npos);
    }
  }
}

// Replaces, in place, the first run of `from` found after `start` with `to` (same length).
void patchBytes(std::string& bytes, const std::string& from, const std::string& to, size_t start) {
  ASSERT_EQ(from.size(), to.size());
  const size_t at = bytes.find(from, start);
  ASSERT_NE(at, std::string::npos);
  bytes.replace(at, from.size(), to);
}

// Thrift's compact protocol stores i64 fields as zigzag varints.
std::string varint(uint64_t value) {
  std::string out;
  do {
    uint8_t byte = value & 0x7f;
    value >>= 7;
    if (value != 0) byte |= 0x80;
    out.push_back(static_cast<char>(byte));
  } while (value != 0);
  return out;
}
std::string zigzag(int64_t value) { return varint(static_cast<uint64_t>(value) << 1); }

size_t footerStart(const std::string& bytes) {
  uint32_t length = 0;
  std::memcpy(&length, bytes.data() + bytes.size() - 8, sizeof length);
  return bytes.size() - 8 - length;
}

// Copies the one-row-group file at path to out with the decoded size its footer declares for
// column's chunk replaced by declared. The varint may change length; the footer's length follows.
void forgeDeclaredSize(const std::string& path, int column, int64_t declared,
                       const std::string& out) {
  std::string bytes = vxtest::readBytes(path);
  const auto metadata = parquet::ParquetFileReader::OpenFile(path)->metadata();
  // Field 6 (an i64) follows field 5: the header byte is 0x16.
  const std::string original =
      "\x16" + zigzag(metadata->RowGroup(0)->ColumnChunk(column)->total_uncompressed_size());
  const size_t footer = footerStart(bytes);
  // The leaf's name in its path of the row group's column metadata, the footer's last one.
  const size_t leafName = bytes.rfind(metadata->schema()->Column(column)->name());
  ASSERT_GT(leafName, footer);
  const size_t at = bytes.find(original, leafName);
  ASSERT_NE(at, std::string::npos);
  bytes.replace(at, original.size(), "\x16" + zigzag(declared));
  const auto length = static_cast<uint32_t>(bytes.size() - 8 - footer);
  std::memcpy(&bytes[bytes.size() - 8], &length, sizeof length);
  vxtest::writeBytes(out, bytes);
}

class DeclaredSizes : public ::testing::Test {
 protected:
  void SetUp() override {
    // 131072 plain int64 values without compression: a chunk of just over 1 MiB, whose sizes
    // take four-byte varints that a forged value of the same length can replace.
    arrow::Int64Builder values;
    for (int64_t i = 0; i < 131072; ++i) ASSERT_TRUE(values.Append(i * 7919).ok());
    const auto table = arrow::Table::Make(arrow::schema({arrow::field("v", arrow::int64())}),
                                          {values.Finish().ValueOrDie()});
    const auto properties = parquet::WriterProperties::Builder()
                                .disable_dictionary()
                                ->compression(parquet::Compression::UNCOMPRESSED)
                                ->build();
    path = dir.file("sizes.parquet");
    vxtest::writeParquet(path, table, 1 << 20, properties);
  }
  void TearDown() override { foundation::services::setMaxColumnChunkBytes(0); }

  vxtest::TempDir dir;
  std::string path;
};

TEST_F(DeclaredSizes, AChunkBeyondTheHostBoundIsRefusedBeforeReading) {
  foundation::services::setMaxColumnChunkBytes(1000);
  RowGroupParquetReader reader(u16(path), std::vector<double>{1});
  for (const auto& read : std::vector<std::function<void()>>{
           [&] { reader.read(); }, [&] { reader.readall(); }, [&] { reader.readFullFile(); }}) {
    const std::string message = messageOf(expectHostError(read, kInvalidRead));
    EXPECT_NE(message.find("Column 'v' in row group 1"), std::string::npos) << message;
    EXPECT_NE(message.find("more than the 1000 bytes allowed"), std::string::npos) << message;
  }
  foundation::services::setMaxColumnChunkBytes(0);
  EXPECT_EQ(vxtest::read::tableRows(reader.readFullFile().get()), 131072u);
}

TEST_F(DeclaredSizes, AChunkClaimingMoreThanItsCodecCanProduceIsRefused) {
  std::string bytes = vxtest::readBytes(path);
  const auto metadata = parquet::ParquetFileReader::OpenFile(path)->metadata();
  const int64_t declared = metadata->RowGroup(0)->ColumnChunk(0)->total_uncompressed_size();
  const std::string original = zigzag(declared);
  ASSERT_EQ(original.size(), 4u);
  // The largest size with a four-byte varint: about 128 times the stored bytes.
  patchBytes(bytes, "\x16" + original, "\x16" + zigzag((int64_t{1} << 27) - 1), footerStart(bytes));
  const std::string forged = dir.file("forged.parquet");
  vxtest::writeBytes(forged, bytes);

  RowGroupParquetReader reader(u16(forged), std::vector<double>{1});
  const std::string message = messageOf(expectHostError([&] { reader.read(); }, kInvalidRead));
  EXPECT_NE(message.find("more than its codec can produce"), std::string::npos) << message;
}

// A nested variable whose string leaf declares more than one Arrow chunk holds: Arrow would
// decompress and decode all of it, then fail. Brotli has no expansion bound, so only this check
// stands between such a footer and the work.
class NestedChunkLimit : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!arrow::util::Codec::IsAvailable(arrow::Compression::BROTLI)) {
      GTEST_SKIP() << "this Arrow build has no brotli codec";
    }
    arrow::Int64Builder ids;
    arrow::StringBuilder flat;
    auto listBuilder = std::make_shared<arrow::ListBuilder>(
        arrow::default_memory_pool(), std::make_shared<arrow::StringBuilder>());
    auto* names = static_cast<arrow::StringBuilder*>(listBuilder->value_builder());
    for (int64_t i = 0; i < 100; ++i) {
      ASSERT_TRUE(ids.Append(i).ok());
      ASSERT_TRUE(flat.Append("flat" + std::to_string(i)).ok());
      ASSERT_TRUE(listBuilder->Append().ok());
      ASSERT_TRUE(names->Append("name" + std::to_string(i)).ok());
    }
    const auto table =
        arrow::Table::Make(arrow::schema({arrow::field("id", arrow::int64()),
                                          arrow::field("names", arrow::list(arrow::utf8())),
                                          arrow::field("flat", arrow::utf8())}),
                           {ids.Finish().ValueOrDie(), listBuilder->Finish().ValueOrDie(),
                            flat.Finish().ValueOrDie()});
    const auto properties =
        parquet::WriterProperties::Builder().compression(parquet::Compression::BROTLI)->build();
    const std::string path = dir.file("nested.parquet");
    vxtest::writeParquet(path, table, 1 << 20, properties);

    // The list leaf's declared size becomes 2 GiB and 1 MiB.
    forgedPath = dir.file("forged.parquet");
    forgeDeclaredSize(path, 1, (int64_t{1} << 31) + (1 << 20), forgedPath);
    const auto metadata = parquet::ParquetFileReader::OpenFile(path)->metadata();
    leafPath = metadata->schema()->Column(1)->path()->ToDotString();
    // The host's memory bound is not what refuses it.
    foundation::services::setMaxColumnChunkBytes(uint64_t{1} << 40);
  }
  void TearDown() override { foundation::services::setMaxColumnChunkBytes(0); }

  vxtest::TempDir dir;
  std::string forgedPath;
  std::string leafPath;  // "names.list.element" or, on older writers, "names.list.item"
};

TEST_F(NestedChunkLimit, AVariableBeyondOneChunkIsRefusedFromTheFooter) {
  RowGroupParquetReader reader(u16(forgedPath), std::vector<double>{1});
  for (const auto& read : std::vector<std::function<void()>>{
           [&] { reader.read(); }, [&] { reader.readall(); }, [&] { reader.readFullFile(); }}) {
    const std::string message = messageOf(expectHostError(read, kInvalidRead));
    EXPECT_NE(message.find("Variable 'names' declares 2148531824 bytes"), std::string::npos)
        << message;
    EXPECT_NE(message.find(leafPath + " leaf"), std::string::npos) << message;
  }
}

TEST_F(NestedChunkLimit, TheOtherVariablesStillRead) {
  RowGroupParquetReader reader(u16(forgedPath), std::vector<double>{1});
  reader.setSelectedVariableNames({u"id", u"flat"});
  EXPECT_EQ(vxtest::read::tableRows(reader.readFullFile().get()), 100u);
}

// A small file whose pages really decompress to 256 MiB while its forged footer declares 4 KB:
// a decompression bomb that the footer checks alone let through.
class PageHeaderBound : public ::testing::Test {
 protected:
  static constexpr int kValues = 64;
  static constexpr size_t kValueBytes = 4 << 20;

  void SetUp() override {
    if (!arrow::util::Codec::IsAvailable(arrow::Compression::ZSTD)) {
      GTEST_SKIP() << "this Arrow build has no zstd codec";
    }
    path = dir.file("bomb.parquet");
    writeRepeatedValues(path);
    forgedPath = dir.file("forged.parquet");
    forgeDeclaredSize(path, 0, 4096, forgedPath);
  }

  // kValues values of kValueBytes of one letter, one page each, written from one buffer so that
  // the test's own memory stays small.
  static void writeRepeatedValues(const std::string& path) {
    using parquet::schema::GroupNode;
    using parquet::schema::PrimitiveNode;
    const auto schema = std::static_pointer_cast<GroupNode>(GroupNode::Make(
        "schema", parquet::Repetition::REQUIRED,
        {PrimitiveNode::Make("blob", parquet::Repetition::REQUIRED, parquet::Type::BYTE_ARRAY)}));
    const auto properties = parquet::WriterProperties::Builder()
                                .compression(parquet::Compression::ZSTD)
                                ->disable_dictionary()
                                ->disable_statistics()
                                ->build();
    const auto sink = arrow::io::FileOutputStream::Open(path).ValueOrDie();
    const auto writer = parquet::ParquetFileWriter::Open(sink, schema, properties);
    auto* column = static_cast<parquet::ByteArrayWriter*>(writer->AppendRowGroup()->NextColumn());
    const std::string value(kValueBytes, 'x');
    const parquet::ByteArray bytes(static_cast<uint32_t>(value.size()),
                                   reinterpret_cast<const uint8_t*>(value.data()));
    for (int i = 0; i < kValues; ++i) column->WriteBatch(1, nullptr, nullptr, &bytes);
    writer->Close();
    ASSERT_TRUE(sink->Close().ok());
  }

  static int64_t peakResidentKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
  }

  vxtest::TempDir dir;
  std::string path;
  std::string forgedPath;
};

TEST_F(PageHeaderBound, PagesDeclaringMoreThanTheFooterAreRefusedBeforeDecompressing) {
  EXPECT_LT(std::filesystem::file_size(forgedPath), 64u << 10);
  const int64_t residentBefore = peakResidentKiB();
  const int64_t arrowBefore = arrow::default_memory_pool()->max_memory();
  RowGroupParquetReader reader(u16(forgedPath), std::vector<double>{1});
  for (const auto& read : std::vector<std::function<void()>>{
           [&] { reader.read(); }, [&] { reader.readall(); }, [&] { reader.readFullFile(); }}) {
    const std::string message = messageOf(expectHostError(read, kInvalidRead));
    EXPECT_NE(message.find("Column 'blob' in row group 1 has pages that declare more than"),
              std::string::npos)
        << message;
    EXPECT_NE(message.find("where the footer declares 4096"), std::string::npos) << message;
  }
  // Nothing near one value's worth of data was decompressed, let alone the file's 256 MiB.
  EXPECT_LT(arrow::default_memory_pool()->max_memory() - arrowBefore,
            static_cast<int64_t>(kValueBytes));
  EXPECT_LT(peakResidentKiB() - residentBefore, 64 << 10);
}

TEST_F(PageHeaderBound, TheSameFileWithAnHonestFooterPassesTheCheck) {
  const auto file = arrow::io::ReadableFile::Open(path).ValueOrDie();
  const auto metadata = parquet::ParquetFileReader::OpenFile(path)->metadata();
  const auto status = checkPageSizes(*file, *metadata, {0}, {0});
  EXPECT_TRUE(status.ok()) << status.ToString();
}

TEST_F(PageHeaderBound, DatasetsRefuseTheForgedFileToo) {
  vantro::io::parquet::core::dataset::DatasetReader reader(
      std::make_shared<vantro::io::parquet::core::dataset::Dataset>(
          std::vector<std::string>{forgedPath},
          vantro::io::parquet::core::dataset::DatasetOptions{}));
  const std::string message = messageOf(expectHostError([&] { reader.readall(); }, kInvalidRead));
  EXPECT_NE(message.find("has pages that declare more than"), std::string::npos) << message;
}

// The header parser meets whatever bytes a file holds at a page's offset.
TEST(PageHeaderParser, ReadsBothSizesAndTheHeaderLength) {
  vxtest::TempDir dir;
  const std::string path = dir.file("simple.parquet");
  vxtest::writeParquet(path, vxtest::simpleTable(100));
  const std::string bytes = vxtest::readBytes(path);
  const auto chunk =
      parquet::ParquetFileReader::OpenFile(path)->metadata()->RowGroup(0)->ColumnChunk(0);
  const auto start =
      static_cast<size_t>(chunk->dictionary_page_offset() > 0 ? chunk->dictionary_page_offset()
                                                              : chunk->data_page_offset());
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data()) + start;
  bool truncated = false;
  const auto sizes = parsePageHeader(data, bytes.size() - start, &truncated);
  ASSERT_TRUE(sizes.has_value());
  EXPECT_GT(sizes->headerBytes, 0);
  EXPECT_GT(sizes->uncompressedBytes, 0);
  EXPECT_LE(sizes->headerBytes + sizes->compressedBytes, chunk->total_compressed_size());

  // Every shorter prefix is a truncated header, never a header.
  for (int64_t length = 0; length < sizes->headerBytes; ++length) {
    EXPECT_FALSE(parsePageHeader(data, static_cast<size_t>(length), &truncated).has_value());
    EXPECT_TRUE(truncated) << length;
  }
}

TEST(PageHeaderParser, RefusesWhatIsNotAHeaderWithoutReadingPastItsBytes) {
  bool truncated = false;
  // A struct nested a thousand deep.
  const std::string deep(1000, '\x1c');
  EXPECT_FALSE(
      parsePageHeader(reinterpret_cast<const uint8_t*>(deep.data()), deep.size(), &truncated));
  EXPECT_FALSE(truncated);
  // A varint that never ends.
  const std::string endless = "\x25" + std::string(20, '\xff');
  EXPECT_FALSE(parsePageHeader(reinterpret_cast<const uint8_t*>(endless.data()), endless.size(),
                               &truncated));
  EXPECT_FALSE(truncated);
  // A header without its sizes.
  const std::string empty(1, '\0');
  EXPECT_FALSE(
      parsePageHeader(reinterpret_cast<const uint8_t*>(empty.data()), empty.size(), &truncated));
  // Random bytes, each in a buffer of its exact length so that a sanitizer sees any overread.
  std::mt19937 random(7);
  for (int round = 0; round < 20000; ++round) {
    std::vector<uint8_t> bytes(random() % 64);
    for (auto& byte : bytes) byte = static_cast<uint8_t>(random());
    const auto sizes = parsePageHeader(bytes.data(), bytes.size(), &truncated);
    if (sizes) {
      EXPECT_LE(static_cast<size_t>(sizes->headerBytes), bytes.size());
    }
  }
}

TEST(ShortData, FewerRowsThanTheFooterDeclaresAreRefused) {
  vxtest::TempDir dir;
  const std::string path = dir.file("short.parquet");
  vxtest::writeParquet(path, vxtest::simpleTable(39));
  std::string bytes = vxtest::readBytes(path);
  // The file's and the row group's row counts say 50; the pages still hold 39 rows.
  const size_t footer = footerStart(bytes);
  const std::string rows39 = "\x16" + zigzag(39);
  const std::string rows50 = "\x16" + zigzag(50);
  patchBytes(bytes, rows39, rows50, footer);
  patchBytes(bytes, rows39, rows50, bytes.rfind(rows39));
  const std::string forged = dir.file("forged.parquet");
  vxtest::writeBytes(forged, bytes);

  RowGroupParquetReader reader(u16(forged), std::vector<double>{1});
  for (const auto& read :
       std::vector<std::function<void()>>{[&] { reader.read(); }, [&] { reader.readFullFile(); }}) {
    const std::string message = messageOf(expectHostError(read, kInvalidRead));
    EXPECT_NE(message.find("The data holds 39 rows where the footer declares 50"),
              std::string::npos)
        << message;
  }
}

}  // namespace
