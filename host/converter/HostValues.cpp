#include "host/converter/HostValues.hpp"

#include <cstring>

#include "host/unicode/ustring.hpp"

namespace vantro::io::arrow::core::host {

::arrow::Result<matrix::unique_array> Allocated(vxArray* array) {
  if (array == nullptr) return ::arrow::Status::OutOfMemory("the host could not allocate an array");
  return matrix::unique_array(array);
}

::arrow::Result<matrix::unique_array> MakeObject(const char* className, std::vector<Field> fields) {
  std::vector<const char*> names;
  for (const auto& field : fields) names.push_back(field.first);
  ARROW_ASSIGN_OR_RAISE(
      auto object, Allocated(vxCreateObjectMatrix(1, 1, className, static_cast<int>(names.size()),
                                                  names.data())));
  for (auto& field : fields) vxSetField(object.get(), 0, field.first, field.second.release());
  return object;
}

::arrow::Result<matrix::unique_array> MakeTable(const std::vector<std::string>& names,
                                                std::vector<matrix::unique_array> columns) {
  ARROW_ASSIGN_OR_RAISE(auto nameCell, Allocated(vxCreateCellMatrix(1, names.size())));
  ARROW_ASSIGN_OR_RAISE(auto columnCell, Allocated(vxCreateCellMatrix(1, columns.size())));
  for (size_t i = 0; i < names.size(); ++i) {
    ARROW_ASSIGN_OR_RAISE(auto name, MakeText(names[i]));
    vxSetCell(nameCell.get(), i, name.release());
  }
  for (size_t i = 0; i < columns.size(); ++i) vxSetCell(columnCell.get(), i, columns[i].release());
  std::vector<Field> fields;
  fields.emplace_back(kNames, std::move(nameCell));
  fields.emplace_back(kColumns, std::move(columnCell));
  return MakeObject(kTable, std::move(fields));
}

::arrow::Result<matrix::unique_array> MakeText(std::string_view utf8) {
  const std::u16string units = foundation::unicode::utf8_to_ustring(utf8);
  return Allocated(
      vxCreateStringFromUTF16(reinterpret_cast<const vxChar*>(units.data()), units.size()));
}

bool IsObject(const vxArray* value, const char* className) {
  return value != nullptr && vxGetClassID(value) == vxOBJECT_CLASS &&
         std::strcmp(vxGetClassName(value), className) == 0;
}

bool IsTable(const vxArray* value) {
  if (value == nullptr) return false;
  const bool structure = vxGetClassID(value) == vxSTRUCT_CLASS || IsObject(value, kTable);
  return structure && vxGetFieldNumber(value, kNames) >= 0 &&
         vxGetFieldNumber(value, kColumns) >= 0;
}

bool IsText(const vxArray* value) {
  return value != nullptr && vxGetClassID(value) == vxCHAR_CLASS &&
         (vxGetM(value) == 1 || vxIsEmpty(value));
}

std::string TextOf(const vxArray* value) {
  // Column-major storage: gather row by row so that a char matrix reads naturally.
  const size_t m = vxGetM(value), n = vxGetN(value);
  const vxChar* units = vxGetChars(value);
  std::u16string text;
  text.reserve(m * n);
  for (size_t r = 0; r < m; ++r) {
    for (size_t c = 0; c < n; ++c) text.push_back(units[r + c * m]);
  }
  return foundation::unicode::ustring_to_utf8(text);
}

std::string TextField(const vxArray* object, const char* field) {
  const vxArray* value = vxGetField(object, 0, field);
  return value != nullptr && vxGetClassID(value) == vxCHAR_CLASS ? TextOf(value) : std::string();
}

bool IsNullElement(const vxArray* value) {
  return value == nullptr ||
         (vxGetClassID(value) == vxDOUBLE_CLASS && vxGetM(value) == 0 && vxGetN(value) == 0);
}

}  // namespace vantro::io::arrow::core::host
