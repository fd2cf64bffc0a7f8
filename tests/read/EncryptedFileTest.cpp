// Files written with Parquet's modular encryption are refused by name: the footer's own
// encryption, and a plaintext footer over encrypted columns, through every way into a file.
#include <dirent.h>

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <arrow/api.h>
#include <parquet/exception.h>
#include <parquet/properties.h>
#if __has_include(<parquet/encryption/encryption.h>)
#include <parquet/encryption/encryption.h>
#define VX_HAVE_PARQUET_ENCRYPTION 1
#endif
#if __has_include(<arrow/util/secure_string.h>)
#include <arrow/util/secure_string.h>
#endif

#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/info/ParquetInfo.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::info::ParquetInfo;
using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::u16;

constexpr const char* kEncrypted = "VANTRO:parquetio:read:EncryptedFile";

// Every entry point refuses the file with EncryptedFile; the second argument says which part
// is encrypted.
void expectRefusedEverywhere(const std::string& path, const std::string& part) {
  namespace info = vantro::io::parquet::core::info;
  const std::vector<std::function<void()>> calls = {
      [&] { ParquetInfo refused(u16(path)); },
      [&] { RowGroupParquetReader(u16(path), std::vector<double>{1}).read(); },
      [&] { RowGroupParquetReader(u16(path), std::vector<double>{}).getStatistics({0}); },
      [&] { info::getNumRowGroupsSync({u16(path)}); },
      [&] { info::getNumRowGroupsAsync(std::vector<std::u16string>(8, u16(path))); },
  };
  for (const auto& call : calls) {
    const auto arguments = vxtest::expectHostError(call, kEncrypted);
    ASSERT_TRUE(arguments.has_value()) << path;
    EXPECT_EQ(vxtest::u8(std::get<std::u16string>(arguments->at(0))), path);
    EXPECT_EQ(std::get<std::string>(arguments->at(1)), part);
  }
}

std::vector<std::string> corpusEncryptedFiles() {
  std::vector<std::string> files;
  const std::string root = vxtest::interopDir();
  for (const std::string& dir : {root, root + "/data"}) {
    DIR* folder = ::opendir(dir.c_str());
    if (folder == nullptr) continue;
    while (dirent* entry = ::readdir(folder)) {
      const std::string name = entry->d_name;
      if (name.find("encrypt") != std::string::npos) files.push_back(dir + "/" + name);
    }
    ::closedir(folder);
  }
  return files;
}

TEST(EncryptedFile, CorpusFilesAreRefusedAsEncrypted) {
  VX_REQUIRE_INTEROP();
  const auto files = corpusEncryptedFiles();
  if (files.empty()) GTEST_SKIP() << "the corpus holds no encrypted files";
  for (const auto& file : files) {
    SCOPED_TRACE(file);
    namespace info = vantro::io::parquet::core::info;
    const auto arguments =
        vxtest::expectHostError([&] { ParquetInfo refused(u16(file)); }, kEncrypted);
    ASSERT_TRUE(arguments.has_value());
    const std::string part = std::get<std::string>(arguments->at(1));
    EXPECT_TRUE(part == "its footer" || part == "its columns") << part;
    expectRefusedEverywhere(file, part);
  }
}

#ifdef VX_HAVE_PARQUET_ENCRYPTION
// Keys as the build's encryption API takes them: newer Arrow wraps them in SecureString.
#if __has_include(<arrow/util/secure_string.h>)
::arrow::util::SecureString keyOf(std::string text) {
  return ::arrow::util::SecureString(std::move(text));
}
#else
std::string keyOf(std::string text) { return text; }
#endif

class WrittenEncrypted : public ::testing::Test {
 protected:
  // Writes a small table with the given encryption; false where this Arrow was built without
  // encryption.
  bool write(const std::string& path,
             std::shared_ptr<parquet::FileEncryptionProperties> encryption) {
    const auto table = vxtest::simpleTable(20);
    const auto properties = parquet::WriterProperties::Builder().encryption(encryption)->build();
    try {
      vxtest::writeParquet(path, table, 1 << 20, properties);
    } catch (const parquet::ParquetException&) {
      return false;
    }
    return vxtest::fileExists(path);
  }

  const std::string footerKey = "0123456789012345";
  const std::string columnKey = "1234567890123450";
  vxtest::TempDir dir;
};

TEST_F(WrittenEncrypted, AnEncryptedFooterIsRefused) {
  const std::string path = dir.file("footer.parquet");
  if (!write(path, parquet::FileEncryptionProperties::Builder(keyOf(footerKey)).build())) {
    GTEST_SKIP() << "this Arrow build cannot encrypt";
  }
  expectRefusedEverywhere(path, "its footer");
}

TEST_F(WrittenEncrypted, EncryptedColumnsUnderAPlaintextFooterAreRefused) {
  const std::string path = dir.file("columns.parquet");
  const auto table = vxtest::simpleTable(1);
  parquet::ColumnPathToEncryptionPropertiesMap columns;
  const std::string first = table->schema()->field(0)->name();
#if __has_include(<arrow/util/secure_string.h>)
  // The map's key names the column; the builder no longer takes it.
  columns[first] = parquet::ColumnEncryptionProperties::Builder().key(keyOf(columnKey))->build();
#else
  columns[first] =
      parquet::ColumnEncryptionProperties::Builder(first).key(keyOf(columnKey))->build();
#endif
  const auto encryption = parquet::FileEncryptionProperties::Builder(keyOf(footerKey))
                              .set_plaintext_footer()
                              ->encrypted_columns(columns)
                              ->build();
  if (!write(path, encryption)) GTEST_SKIP() << "this Arrow build cannot encrypt";
  expectRefusedEverywhere(path, "its columns");
}
#endif

}  // namespace
