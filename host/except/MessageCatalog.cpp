#include "host/except/MessageCatalog.hpp"

#include <unordered_map>

#include "host/unicode/ustring.hpp"

namespace foundation::core::except {
namespace {

const std::unordered_map<std::string_view, std::string_view>& catalogue() {
  static const std::unordered_map<std::string_view, std::string_view> texts = {
      // Reading
      {"VANTRO:parquetio:read:InternalInvalidRead", "Unable to read '{0}'. {1}"},
      {"VANTRO:parquetio:read:ReaderLoadFailed", "Unable to load the Parquet reader: {0}. {1}"},
      {"VANTRO:parquetio:read:InternalUnsupportedParquetType",
       "Variable '{0}' has a type that cannot be converted to a host value."},
      {"VANTRO:parquetio:read:DictionaryInNestedStructure",
       "Variable '{0}' holds dictionary-encoded values inside a nested type, which cannot be read "
       "across several row groups. Read one row group at a time instead."},
      {"VANTRO:parquetio:read:InternalError", "Internal error during {0}. {1}"},
      {"VANTRO:parquetio:read:UnsupportedRowFilterVariable",
       "Variable '{0}' of type '{1}' cannot be used to filter rows."},
      {"VANTRO:parquetio:read:EncryptedFile",
       "Unable to read '{0}': the file is encrypted ({1}), and decryption of Parquet files is "
       "not supported."},
      // Writing
      {"VANTRO:parquetio:write:InvalidWrite", "Unable to write '{0}'. {1}"},
      {"VANTRO:parquetio:write:InvalidWriteVars",
       "The table to write must have {0} variables, one for each variable name."},
      {"VANTRO:parquetio:write:InvalidZeroVars", "Unable to write a table with no variables."},
      {"VANTRO:parquetio:write:InvalidOption", "Invalid value for option '{0}': '{1}'."},
      {"VANTRO:parquetio:write:WrongOptionNumel", "Option '{0}' must have {1} elements."},
      {"VANTRO:parquetio:write:LeafColumnPathsEmpty",
       "Leaf column paths and their offsets must not be empty."},
      {"VANTRO:parquetio:write:LeafColumnPathsOffsetsAcending",
       "Leaf column path offsets must be strictly ascending."},
      {"VANTRO:parquetio:write:LeafColumnPathsSizeMismatch",
       "The last leaf column path offset must equal the number of leaf column paths."},
      {"VANTRO:parquetio:write:LeafColumnPathsNumTopLevelCols",
       "Leaf column paths describe {0} variables, but {1} variable names are set."},
      {"VANTRO:parquetio:write:RowGroupedListOfDictionaries",
       "Variable '{0}' holds lists of dictionary-encoded values; reading it back across several "
       "row groups will fail."},
      {"VANTRO:parquetio:write:NestedRowGroupedListOfDictionaries",
       "Variable '{0}' holds dictionary-encoded values nested inside lists; reading it back "
       "across several row groups will fail."},
      // Splits of files into tasks
      {"VANTRO:parquetio:plan:InvalidTask", "Invalid task: {0}."},
      {"VANTRO:parquetio:plan:FileChanged",
       "'{0}' is not the file that the task was planned for: {1}. Plan the tasks again."},
      // Datasets
      {"VANTRO:parquetio:dataset:NoMatch", "No file matches the pattern '{0}'."},
      {"VANTRO:parquetio:dataset:EmptyFolder", "'{0}' holds no Parquet file."},
      {"VANTRO:parquetio:dataset:DanglingLink",
       "'{0}' is a symbolic link to '{1}', which does not exist."},
      {"VANTRO:parquetio:dataset:UnreadableFile", "Unable to read '{0}': {1}."},
      {"VANTRO:parquetio:dataset:NotParquet", "'{0}' is not a Parquet file."},
      {"VANTRO:parquetio:dataset:InconsistentPartitions",
       "The partition folders of '{0}' and '{1}' differ: {2}."},
      {"VANTRO:parquetio:dataset:InvalidPartitionValue",
       "Partition variable '{0}' of type '{1}' cannot hold the value '{2}' of '{3}'."},
      {"VANTRO:parquetio:dataset:PartitionVariableClash",
       "Partition variable '{0}' is also a variable of '{1}'."},
      {"VANTRO:parquetio:dataset:SchemaConflict",
       "Variable '{0}' is {2} in '{1}' but {4} in '{3}', and no type holds both without loss."},
      {"VANTRO:parquetio:dataset:SchemaMismatch",
       "'{1}' has other variables or types than '{0}': {2}."},
      {"VANTRO:parquetio:dataset:UnknownVariable",
       "The dataset has no variable '{0}'. Its variables are: {1}."},
      {"VANTRO:parquetio:dataset:InvalidOption", "Invalid value for the dataset's {0}: '{1}'."},
      {"VANTRO:parquetio:dataset:NoMoreData", "The dataset has no more data to read."},
      {"VANTRO:parquetio:dataset:SkippedFile", "Skipped '{0}': {1}."},
      {"VANTRO:parquetio:dataset:TargetNotFolder", "Unable to write a dataset into '{0}': {1}."},
      {"VANTRO:parquetio:dataset:TargetNotEmpty",
       "'{0}' already holds files, such as '{1}': choose to add the new files beside them or to "
       "replace the partitions written."},
      {"VANTRO:parquetio:dataset:ExistingLayoutMismatch",
       "'{1}' in '{0}' is partitioned by {2}, not by {3}: the folder could no longer be read as "
       "one dataset."},
      {"VANTRO:parquetio:dataset:InvalidPartitionVariable",
       "Variable '{0}' of type {1} cannot partition a dataset: {2}."},
      {"VANTRO:parquetio:dataset:AllVariablesPartitioned",
       "Every variable is a partition variable: the files would hold none."},
      {"VANTRO:parquetio:dataset:UnwritablePartitionValue",
       "Partition variable '{0}' holds {1}, which no folder name keeps exactly: {2}."},
      {"VANTRO:parquetio:dataset:RemoveFailed",
       "Unable to remove the replaced file '{0}': {1}. The new files are written."},
      // Row filters
      {"VANTRO:filter:InvalidExpression", "Invalid row filter '{0}': {1}."},
      {"VANTRO:filter:UnknownVariable",
       "The row filter uses '{0}', which is not a variable of the file. Its variables are: {1}."},
      {"VANTRO:filter:TypeMismatch",
       "The row filter compares variable '{0}' of type '{1}' with the {2} {3}."},
      {"VANTRO:filter:UnsupportedVariable",
       "Variable '{0}' of type '{1}' cannot be used in a row filter."},
      {"VANTRO:filter:InvalidTable", "Unable to filter the rows: {0}."},
      // Host
      {"VANTRO:host:Interrupted", "Operation terminated by user."},
      {"VANTRO:vfs:FileNotFound", "Unable to find or open '{0}'. Check the path and filename."},
      {"VANTRO:vfs:IsDirectory", "'{0}' is a folder, not a file."},
      {"VANTRO:vfs:OpenFailed", "Unable to open '{0}': {1}"},
      {"VANTRO:vfs:UnknownScheme", "No file system is registered for the scheme '{1}' of '{0}'."},
      {"VANTRO:vfs:InvalidIRI", "'{0}' is not a valid file name or IRI."},
      {"VANTRO:vfs:ReadFailure", "Unable to read from '{0}'."},
      {"VANTRO:vfs:WriteFailure", "Unable to write to '{0}'. The disk may be full."},
  };
  return texts;
}

}  // namespace

std::string_view catalogueText(std::string_view identifier) {
  const auto it = catalogue().find(identifier);
  return it == catalogue().end() ? std::string_view() : it->second;
}

std::string argumentText(const MessageArgument& argument) {
  struct {
    std::string operator()(int64_t v) const { return std::to_string(v); }
    std::string operator()(const std::string& v) const { return v; }
    std::string operator()(const std::u16string& v) const { return unicode::ustring_to_utf8(v); }
  } visitor;
  return std::visit(visitor, argument);
}

std::string formatMessage(std::string_view identifier, const MessageArguments& arguments) {
  const std::string_view text = catalogueText(identifier);
  if (text.empty()) {
    std::string out(identifier);
    for (const auto& argument : arguments) out += " " + argumentText(argument);
    return out;
  }
  std::string out;
  out.reserve(text.size() + 64);
  for (size_t i = 0; i < text.size(); ++i) {
    const bool hole = text[i] == '{' && i + 2 < text.size() && text[i + 2] == '}' &&
                      text[i + 1] >= '0' && text[i + 1] <= '9';
    if (!hole) {
      out.push_back(text[i]);
      continue;
    }
    const size_t index = static_cast<size_t>(text[i + 1] - '0');
    if (index < arguments.size()) out += argumentText(arguments[index]);
    i += 2;
  }
  return out;
}

IMsgIDException::IMsgIDException(std::string component, std::string key, MessageArguments arguments)
    : mComponent(std::move(component)),
      mKey(std::move(key)),
      mArguments(std::move(arguments)),
      mMessage(formatMessage(mComponent + ":" + mKey, mArguments)) {}

}  // namespace foundation::core::except
