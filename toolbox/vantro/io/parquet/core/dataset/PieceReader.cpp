#include "toolbox/vantro/io/parquet/core/dataset/PieceReader.hpp"

#include <arrow/memory_pool.h>
#include <arrow/table.h>
#include <parquet/file_reader.h>

#include "host/converter/Converter.hpp"
#include "host/services/Services.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace vantro::io::parquet::core::dataset {

using foundation::unicode::utf8_to_ustring;

PieceReader::PieceReader(const DatasetFile& file, bool alone) : mAlone(alone) {
  mFilename = file.name;
  auto adapter = common::makeReadableFilePtr(file.name);
  mFile = adapter;
  common::throwReadExceptIfNotOk(
      guarded([&] {
        // The footer read before is reused: the file is opened, not parsed again.
        auto parquetReader = ::parquet::ParquetFileReader::Open(
            adapter, ::parquet::default_reader_properties(), file.metadata);
        return common::compat::MakeFileReader(foundation::services::getArrowReadPool(),
                                              std::move(parquetReader), &mFileReader);
      }),
      mFilename);
  mSelectedVariables.manifest = &mFileReader->manifest();
}

std::shared_ptr<::arrow::Table> PieceReader::readRowGroup(int rowGroup,
                                                          const std::vector<std::string>& names) {
  std::vector<std::u16string> wanted;
  wanted.reserve(names.size());
  for (const auto& name : names) wanted.push_back(utf8_to_ustring(name));
  setSelectedVariableNames(wanted);
  if (mAlone) {
    mArrowThreads = false;
    mFileReader->set_use_threads(false);
  } else {
    setupArrowThreadPool();
  }
  checkDeclaredSizes({rowGroup});
  std::shared_ptr<::arrow::Table> table;
  common::throwReadExceptIfNotOk(guarded([&] {
                                   return common::compat::ReadRowGroup(
                                       *mFileReader, rowGroup,
                                       mSelectedVariables.parquetColumnIndices, &table);
                                 }),
                                 mFilename);
  checkRowCount(table, footerRows({rowGroup}));
  return table;
}

}  // namespace vantro::io::parquet::core::dataset
