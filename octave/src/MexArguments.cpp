#include "MexArguments.hpp"

#include <cctype>
#include <cstring>

#include "OctaveValues.hpp"
#include "host/unicode/ustring.hpp"

namespace vantro::octave {

namespace {
[[noreturn]] void invalid(const std::string& message) {
  throw TranslationError{"VANTRO:octave:InvalidArgument", message};
}
}  // namespace

std::u16string fileNameOf(const mxArray* value) {
  if (value == nullptr || !mxIsChar(value) || mxGetM(value) > 1) {
    invalid("the file name must be a character row vector");
  }
  return foundation::unicode::utf8_to_ustring(textOf(value, "the file name"));
}

std::vector<std::string> textListOf(const mxArray* value, const char* what) {
  std::vector<std::string> texts;
  if (value == nullptr || mxIsEmpty(value)) {
    if (value != nullptr && mxIsCell(value)) return texts;
    if (value == nullptr || mxIsDouble(value)) return texts;
  }
  if (mxIsChar(value) && mxGetM(value) <= 1) {
    texts.push_back(textOf(value, what));
    return texts;
  }
  if (!mxIsCell(value)) invalid(std::string(what) + " must be text or a cell array of texts");
  for (size_t i = 0, count = mxGetNumberOfElements(value); i < count; ++i) {
    const mxArray* element = mxGetCell(value, i);
    if (element == nullptr || !mxIsChar(element) || mxGetM(element) > 1) {
      invalid(std::string(what) + " must be text or a cell array of texts");
    }
    texts.push_back(textOf(element, what));
  }
  return texts;
}

std::vector<double> numbersOf(const mxArray* value, const char* what) {
  if (value == nullptr || !mxIsNumeric(value) || mxIsComplex(value) || mxIsSparse(value)) {
    invalid(std::string(what) + " must be real numbers");
  }
  std::vector<double> numbers;
  const size_t count = mxGetNumberOfElements(value);
  numbers.reserve(count);
  if (mxIsDouble(value)) {
    const double* data = mxGetPr(value);
    numbers.assign(data, data + count);
    return numbers;
  }
  // Other classes through a double copy made by Octave's own rules.
  mxArray* converted = nullptr;
  mxArray* input = const_cast<mxArray*>(value);
  if (mexCallMATLAB(1, &converted, 1, &input, "double") != 0 || converted == nullptr) {
    invalid(std::string(what) + " must be real numbers");
  }
  const double* data = mxGetPr(converted);
  numbers.assign(data, data + count);
  mxDestroyArray(converted);
  return numbers;
}

std::optional<const mxArray*> optionOf(const mxArray* options, const char* name) {
  if (options == nullptr || !mxIsStruct(options)) return std::nullopt;
  const mxArray* value = mxGetField(options, 0, name);
  if (value == nullptr || (mxIsDouble(value) && mxIsEmpty(value))) return std::nullopt;
  return value;
}

std::string lowercase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

ToOctaveOptions translationOptions(const mxArray* options) {
  ToOctaveOptions translation;
  if (const auto dates = optionOf(options, "DatesAs")) {
    const std::string given = textOf(*dates, "DatesAs");
    const std::string choice = lowercase(given);
    if (choice != "ticks" && choice != "datenum") {
      invalid("DatesAs must be \"ticks\" or \"datenum\", not \"" + given + "\"");
    }
    translation.datesAsDatenum = choice == "datenum";
  }
  return translation;
}

bool flagOf(const mxArray* value, const char* what) {
  const bool scalar = value != nullptr && mxGetNumberOfElements(value) == 1 && !mxIsComplex(value);
  if (scalar && mxIsLogical(value)) return mxGetLogicals(value)[0];
  if (scalar && mxIsNumeric(value)) {
    const double number = numbersOf(value, what)[0];
    if (number == 0 || number == 1) return number == 1;
  }
  invalid(std::string(what) + " must be true or false");
}

mxArray* textOfUtf8(const std::string& text) {
  const mwSize dims[2] = {text.empty() ? 0 : 1, static_cast<mwSize>(text.size())};
  mxArray* out = mxCreateCharArray(2, dims);
  if (!text.empty()) std::memcpy(mxGetChars(out), text.data(), text.size());
  return out;
}

mxArray* cellRowOf(const std::vector<std::string>& texts) {
  mxArray* out = mxCreateCellMatrix(1, texts.size());
  for (size_t i = 0; i < texts.size(); ++i) mxSetCell(out, i, textOfUtf8(texts[i]));
  return out;
}

mxArray* cellRowOf(const std::vector<std::u16string>& texts) {
  mxArray* out = mxCreateCellMatrix(1, texts.size());
  for (size_t i = 0; i < texts.size(); ++i) {
    mxSetCell(out, i, textOfUtf8(foundation::unicode::ustring_to_utf8(texts[i])));
  }
  return out;
}

}  // namespace vantro::octave
